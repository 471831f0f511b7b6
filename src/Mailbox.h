#ifndef KIVR_SRC_MAILBOX_H
#define KIVR_SRC_MAILBOX_H

#include <memory>
#include <mutex>

#include "EventFd.h"
#include "ThreadSafety.h"

namespace kiv {

class ClientRequest;
class ClientResponse;

/// Hands the clients' requests to the worker thread, in the order in which they came, and the
/// responses back.
///
/// Threads: any number of clients in post; take and finish on the worker thread only; close on any.
/// Ownership: owned by the engine. The requests stay their clients', who wait for as long as the
/// worker uses them. Every client has to have left before the mailbox is destroyed.
/// Blocking: post waits for the response. Nothing else blocks: the mutex is never held while a
/// request is carried out.
/// Re-entrancy: none to mind, since no foreign code is called.
/// Mailbox.pml beside this file models the mailbox and those who use it; whoever changes one
/// changes both, and runs script/model.
class Mailbox {
public:
    /// Before the first request. Returns the eventfd that becomes readable for each request, when
    /// the request is the first of those that wait. Aborts if the system grants none.
    int open();

    /// Empty if the mailbox is closed, or if the eventfd can't be signalled, which is logged.
    std::shared_ptr<ClientResponse> post(const ClientRequest& request) KIV_EXCLUDES(mutex);

    /// The request that came first, or null. The worker has it in hand until it calls finish, and
    /// takes no other one before.
    const ClientRequest* take() KIV_EXCLUDES(mutex);
    /// Lets the client of the request in hand return with the response. Without a response that
    /// client waits until the mailbox is closed.
    void finish(std::shared_ptr<ClientResponse> response) KIV_EXCLUDES(mutex);

    /// Lets all clients return without a response, those of later requests included. Only the
    /// client of the request in hand still gets its response.
    void close() KIV_EXCLUDES(mutex);

private:
    struct Turn;
    /// First come, first served. Links turns that stay their clients', and so takes no memory.
    struct Queue {
        Turn* first = nullptr;
        Turn* last = nullptr;
        void append(Turn& turn);
        Turn* takeFirst();
    };

    void signalFor(Turn& first) const;
    void passOn() KIV_REQUIRES(mutex);
    bool takeBack(Turn& turn) KIV_EXCLUDES(mutex);
    static void letGo(Queue& turns);

    // Constant once opened.
    OwnedFd requestFd;

    // Guarded.
    std::mutex mutex;
    /// The eventfd has been signalled, or is about to be, for the first turn alone.
    Queue waiting KIV_GUARDED_BY(mutex);
    /// The turn whose request the worker carries out. It stays the first that waits until finish.
    Turn* inHand KIV_GUARDED_BY(mutex) = nullptr;
    Queue unanswered KIV_GUARDED_BY(mutex);
    bool closed KIV_GUARDED_BY(mutex) = false;
};

}  // namespace kiv

#endif
