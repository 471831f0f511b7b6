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

#include "FaultList.h"
#include "Journal.h"
#include "ModemEmulator.h"
#include "TaskQueue.h"
#include "WdsService.h"

namespace kiv::emulator {

/// The modem behind both interfaces: the messaging client that programs are linked against, and
/// the control interface. It joins the service, its clients and the two threads.
///
/// Threads: every operation on any thread. The modem thread carries out requests, one at a time;
/// the callback thread makes every callback, one at a time and in the order of their causes.
/// Ownership: one for the process, never destroyed.
/// Blocking: only sendRequest, release, and where said.
/// Re-entrancy: callbacks, observers and rewrites run with no lock held and may call everything.
/// From a callback, waiting for callbacks fails at once.
class Modem {
public:
    static Modem& getInstance();

    Modem(const Modem&) = delete;
    Modem& operator=(const Modem&) = delete;

    // The messaging client. Results as in rav_client.h; pointers must not be null.
    int openNotifier(rav_service_object_type serviceObject, rav_client_type* notifier);
    int setNotifyCallback(rav_client_type notifier, rav_client_notify_cb callback, void* userData);
    int findService(rav_service_info* info) const;
    int openClient(const rav_service_info& info, rav_client_ind_cb callback, void* userData,
                   rav_client_type* client);
    int setErrorCallback(rav_client_type client, rav_client_error_cb callback, void* userData);
    int sendRequest(rav_client_type client, unsigned messageId, std::vector<std::byte> request,
                    void* response, std::chrono::milliseconds timeout);
    bool isOpenClient(rav_client_type client) const;
    /// Waits for the running callback of the client. Within a callback it does not: that callback
    /// is then the client's last.
    int release(rav_client_type handle);

    // Control. As in ModemEmulator.
    bool useVirtualClock(bool on);
    bool isClockVirtual() const { return clock.isVirtual(); }
    TimePoint now() const;
    void passTime(std::chrono::milliseconds atMost);
    void start();
    void stop();
    void restart();
    bool isRunning() const;
    void reset();
    /// False, and nothing changed, while the modem is on.
    bool restore(const ProfileTables& tables);
    void sendChange(const wds_profile_changed_ind_type_v01& change);
    void sendIndication(unsigned messageId, const std::vector<std::byte>& bytes);
    void addFault(Fault fault);
    void play(const Scenario& scenario);
    void performNow(const Action& action);
    void clearFaults();
    void failCall(ModemEmulator::Call call, int result);
    std::optional<int> takeCallFailure(ModemEmulator::Call call);
    std::vector<Request> requests() const;
    void setObserver(std::function<void(const Request&)> newObserver);
    bool waitForRegisteredClient(TimePoint deadline) const;
    bool waitForDeliveries(TimePoint deadline);
    bool waitForObservers(TimePoint deadline);
    uint64_t callbacksSoFar() const { return callbackCount; }
    size_t openClients() const;
    bool startJournal(const std::string& path, bool showSecrets);
    void markJournal(const std::string& what);
    bool finishJournal();

    /// Runs an operation on the service, and reports the changes that it made.
    template <class Operation>
    auto withService(Operation operation) {
        std::lock_guard lock(mutex);
        auto result = operation(service);
        reportChanges();
        return result;
    }

private:
    struct Client {
        bool isNotifier = false;
        unsigned number = 0;  ///< in the journal
        bool isGone = false;  ///< its service went away
        bool isDeaf = false;  ///< its service went away, and it has not been told
        rav_service_object_type serviceObject = nullptr;
        rav_client_notify_cb notify = nullptr;
        rav_client_error_cb error = nullptr;
        void* userData = nullptr;  ///< of whichever of the two it has
        rav_client_ind_cb indicate = nullptr;
        void* indicationData = nullptr;
        Session session;

        const char* what() const { return isNotifier ? "notifier" : "client"; }
    };

    /// A request on its way. The response belongs to the modem thread until the outcome is known,
    /// and does not change from then on; the rest is guarded.
    struct Transaction {
        rav_client_type client;
        unsigned clientNumber;
        std::chrono::milliseconds timeout;
        bool hasTimers = false;       ///< tasks in its name wait for their time
        bool isCounted = false;       ///< by the clock, as one that waits
        bool isFromCallback = false;  ///< its sender holds all other callbacks up
        Request record;
        Fault fault;
        std::vector<std::byte> response;
        uint64_t observerNumber = 0;  ///< whose it is: see observersSoFar
        bool isDecided = false;       ///< the outcome is known
        bool isAnswered = false;      ///< and the sender may go on
        std::condition_variable answered;
    };
    struct HeldIndication {
        rav_client_type client;
        unsigned messageId;
        std::vector<std::byte> bytes;
    };
    using TransactionPointer = std::shared_ptr<Transaction>;

    Modem() = default;
    ~Modem() = delete;

    bool deliverHeldAndIdle();
    /// Notes a callback that is about to be made, without the mutex.
    template <class Note>
    void noteCallback(Note note);

    // All of these with the mutex held.
    rav_client_type addClient(const Client& client);
    Client* findClient(rav_client_type handle, bool isNotifier);
    void postNotification(rav_client_type handle, const Client& client,
                          rav_client_notify_event_type event);
    void postError(rav_client_type handle, const Client& client);
    void postIndication(rav_client_type handle, const Client& client, unsigned messageId,
                        const std::vector<std::byte>& bytes);
    void noteEvent(const std::string& what);
    /// The program turns the power on or off.
    void noteProgram(const char* what);
    void startNow();
    /// By the program; late, or not at all, if the scenario says so.
    void startAsPlayed();
    void stopAsTold();
    void stopNow(bool silently);
    void reportChanges();
    void deliverChange(const wds_profile_changed_ind_type_v01& change);
    void deliverBytes(unsigned messageId, const std::vector<std::byte>& bytes);
    /// Delivers the changes that a request made in the way that its fault says.
    void reportChangesOf(const Fault& fault);
    void carryOut(Client& client, Transaction& transaction);
    /// The request will not be answered.
    void lose(const TransactionPointer& transaction);
    void performAll(const Fault& fault, Moment moment);
    void perform(const Action& action);
    /// Makes the indications that were to wait for the answer.
    void deliverHeld();
    void endScenario();

    TransactionPointer putRequest(rav_client_type handle, const Client& client, unsigned messageId,
                                  std::vector<std::byte> request,
                                  std::chrono::milliseconds timeout);
    bool decide(const TransactionPointer& transaction, int result);
    /// The sender may go on; it is yet to be woken.
    void letGo(Transaction& transaction);
    void giveUp(const TransactionPointer& transaction, int result);
    /// Ends the requests in progress of one client, or of all for null.
    void abandonRequests(rav_client_type client, int result);
    std::vector<std::function<void(void*, size_t)>> takeRewrites();
    void waitForForeignCode(std::unique_lock<std::mutex>& lock);

    // On the modem thread, without the mutex.
    void takeRequest(const TransactionPointer& transaction);
    void answer(const TransactionPointer& transaction);
    void expire(const TransactionPointer& transaction);
    /// Observes what is decided and lets the sender go on.
    void finish(const TransactionPointer& transaction);
    /// Runs a step of a request on the modem thread; with the virtual clock, once the callbacks
    /// caused so far have been made, so that their order is the same each time.
    void afterCallbacks(const TransactionPointer& transaction,
                        void (Modem::*step)(const TransactionPointer&));
    /// The same for what is no request's.
    void afterCallbacks(std::function<void()> step);

    // On the modem thread, with the mutex held, but not while foreign code runs.
    void observe(std::unique_lock<std::mutex>& lock, const Transaction& transaction);
    void runForeignCode(std::unique_lock<std::mutex>& lock, std::function<void()> code);

    Clock& clock = *new Clock;
    TaskQueue& modemThread = *new TaskQueue("modem", clock);
    TaskQueue& callbackThread = *new TaskQueue("modem-callback", clock);

    mutable std::mutex mutex;
    mutable std::condition_variable sessionChanged;
    std::condition_variable foreignCodeEnded;
    WdsService service;
    bool running = false;
    uint32_t instance = 0;  ///< counts power-ups: a client belongs to one
    uintptr_t lastHandle = 0;
    std::map<rav_client_type, Client> clients;
    std::atomic<uint64_t> callbackCount = 0;
    Journal journal;
    unsigned clientCount = 0;
    FaultList faults;
    bool isStartDelayed = false;  ///< the next power-on is late, or never
    std::optional<std::chrono::milliseconds> startDelay;
    std::vector<HeldIndication> heldIndications;
    std::vector<Action> heldActions;  ///< for when the modem is idle
    std::map<ModemEmulator::Call, int> callFailures;
    uint64_t requestCount = 0;
    std::deque<TransactionPointer> log;
    std::vector<TransactionPointer> open;       ///< those of the log that are undecided
    std::vector<TransactionPointer> finishing;  ///< decided, but their observer has not been called
    std::condition_variable finished;           ///< one of these is
    std::function<void(const Request&)> observer;
    uint64_t observersSoFar = 0;  ///< a request is for the observer that was there when it was sent
    bool runsForeignCode = false;
};

}  // namespace kiv::emulator

#endif
