#ifndef EMULATOR_MODEM_H
#define EMULATOR_MODEM_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "Faults.h"
#include "Journal.h"
#include "ModemEmulator.h"
#include "TaskQueue.h"
#include "WdsService.h"

namespace kiv::emulator {

/// The modem, on which both interfaces work: the messaging client that programs are linked against
/// (RavClient.cpp), and the control interface, ModemEmulator. It joins the service, its clients and
/// the two threads.
///
/// Threads: any. The modem thread carries out requests, one at a time; the callback thread makes
/// every callback, one at a time and in the order of their causes.
/// Ownership: one for the process, never destroyed.
/// Blocking: only sendRequest and the two waits.
/// Re-entrancy: callbacks and the hook run with no lock held and may call everything.
struct Modem {
    static Modem& getInstance();

    struct Client {
        enum class Service {
            Served,
            Deaf,  ///< its service went away, and the client has not been told
            Gone   ///< its service went away
        };
        bool isNotifier = false;
        unsigned number = 0;  ///< in the journal
        Service state = Service::Served;
        rav_service_object_type serviceObject = nullptr;
        rav_client_notify_cb notify = nullptr;
        rav_client_error_cb error = nullptr;
        void* userData = nullptr;  ///< of whichever of the two it has
        rav_client_ind_cb indicate = nullptr;
        void* indicationData = nullptr;
        Session session{};
    };

    /// A request on its way. The answer belongs to the modem thread until the request is decided,
    /// and does not change from then on; the rest is guarded.
    struct Transaction {
        enum class State {
            Sent,       ///< the modem has yet to answer
            Timed,      ///< as before, and tasks in the request's name wait for their time
            Answering,  ///< the hook may rewrite the answer
            Decided,    ///< the outcome is known
            Free,       ///< the sender may go on
            Finished    ///< and the hook has seen the request
        };
        // Set once, by the sender.
        rav_client_type client;
        unsigned clientNumber;
        std::chrono::milliseconds timeout;
        bool isCounted;       ///< by the virtual clock, as a sender that waits
        bool isFromCallback;  ///< its sender holds all other callbacks up
        TaskName name;

        State state = State::Sent;
        Request record;
        Fault fault;
        std::vector<std::byte> answer;
        std::condition_variable freed;
    };
    using TransactionPointer = std::shared_ptr<Transaction>;
    using State = Transaction::State;

    struct HeldIndication {
        rav_client_type client;
        unsigned messageId;
        std::vector<std::byte> bytes;
    };

    Modem() = default;
    ~Modem() = delete;
    Modem(const Modem&) = delete;
    Modem& operator=(const Modem&) = delete;

    // All of these with the mutex held.
    rav_client_type addClient(const Client& client);
    Client* findClient(rav_client_type handle, bool isNotifier);
    static TaskName callbacksOf(rav_client_type handle);
    /// Posts a callback of the client, and a note of it for the journal.
    template <class Note, class Call>
    void postCallback(rav_client_type handle, Note note, Call call);
    void postNotification(rav_client_type handle, const Client& client, bool hasAppeared);
    void postError(rav_client_type handle, const Client& client);
    void postIndication(rav_client_type handle, const Client& client, unsigned messageId,
                        const std::vector<std::byte>& bytes);
    void startNow();
    void stopNow(bool silently);
    /// By the program; the start is late, or does not happen, if the scenario says so.
    void startAsTold();
    void stopAsTold();
    void reportChanges();
    void deliverChange(const wds_profile_changed_ind_type_v01& change);
    void deliverBytes(unsigned messageId, const std::vector<std::byte>& bytes);
    /// Delivers the changes that a request made in the way that its fault says.
    void reportChangesOf(const Fault& fault);
    void performAll(const Fault& fault, Moment moment);
    void perform(const Action& action);
    /// Performs an action after a while, once the callbacks caused before have been made.
    void performLater(const Action& action, std::chrono::milliseconds delay, TaskName::Kind name);
    /// Makes the indications that were to wait for the answer.
    void deliverHeld();
    void endScenario();

    /// Sends a request and waits for its outcome, without the mutex. Returns a result of
    /// rav_client.h; only with RAV_CLIENT_OK the response is written.
    int sendRequest(rav_client_type handle, const Message& message,
                    std::span<const std::byte> bytes, std::span<std::byte> response,
                    std::chrono::milliseconds timeout);

    // A request, with the mutex held.
    TransactionPointer putRequest(rav_client_type handle, const Client& client,
                                  std::chrono::milliseconds timeout);
    /// The only place where a request's state changes: later ones follow earlier ones.
    void moveTo(State next, Transaction& request);
    void carryOut(Client& client, Transaction& request);
    /// The request will not be answered.
    void lose(const TransactionPointer& request);
    static void noteOutcome(Transaction& request, int result);
    void decide(Transaction& request, int result);
    void giveUp(const TransactionPointer& request, int result);
    /// Ends the requests in progress of one client, or of all for null.
    void abandonRequests(rav_client_type client, int result);

    // A request on the modem thread, without the mutex.
    void take(const TransactionPointer& request);
    void answer(const TransactionPointer& request);
    void expire(const TransactionPointer& request);
    void finish(const TransactionPointer& request);
    /// Runs a step of a request once the callbacks caused so far have been made, where their order
    /// counts.
    void afterCallbacks(const TransactionPointer& request,
                        void (Modem::*step)(const TransactionPointer&));
    template <class Step>
    void afterCallbacks(bool isOrdered, Step step) {
        if (!isOrdered || callbackThread.hasNothingToDo()) {
            step();
            return;
        }
        // Looks again: a callback may have caused others.
        callbackThread.post(
            [=, this] { modemThread.post([=, this] { afterCallbacks(isOrdered, step); }); });
    }

    /// On the modem thread, with the mutex held, but not while the hook runs.
    void runHook(std::unique_lock<std::mutex>& lock, Transaction& request);
    void waitForHook(std::unique_lock<std::mutex>& lock);
    bool waitForFinish(TimePoint deadline);

    Clock& clock = *new Clock;
    TaskQueue& modemThread = *new TaskQueue("modem", clock);
    TaskQueue& callbackThread = *new TaskQueue("modem-callback", clock);
    std::atomic<uint64_t> callbackCount = 0;

    mutable std::mutex mutex;  ///< guards all of the following
    std::condition_variable sessionChanged;
    std::condition_variable hookEnded;
    std::condition_variable requestFinished;
    WdsService service;
    bool running = false;
    uint32_t instance = 0;  ///< counts power-ups: a client belongs to one
    uintptr_t lastHandle = 0;
    std::map<rav_client_type, Client> clients;
    Journal journal{clock};
    unsigned clientCount = 0;
    FaultList faults;
    bool isStartDelayed = false;  ///< the next power-on is late, or never
    std::optional<std::chrono::milliseconds> startDelay;
    std::vector<HeldIndication> heldIndications;
    std::vector<Action> heldActions;  ///< for when the modem is idle
    std::map<ModemEmulator::Call, int> callFailures;
    uint64_t sentCount = 0;
    uint64_t sentBeforeReset = 0;
    std::deque<TransactionPointer> log;
    std::vector<TransactionPointer> inProgress;  ///< those that are not finished
    std::shared_ptr<const ModemEmulator::Hook> hook;
    bool runsHook = false;
};

}  // namespace kiv::emulator

#endif
