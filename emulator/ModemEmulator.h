#ifndef EMULATOR_MODEMEMULATOR_H
#define EMULATOR_MODEMEMULATOR_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Scenario.h"
#include "wds_v01.h"

#if defined(__GNUC__)
#define KIV_EMULATOR_API __attribute__((visibility("default")))
#else
#define KIV_EMULATOR_API
#endif

namespace kiv::emulator {

struct Modem;

/// One profile of the emulated modem, as its table holds it.
struct Profile {
    wds_profile_type_enum_v01 type = WDS_PROFILE_TYPE_3GPP_V01;
    uint8_t index = 0;  ///< the modem's profile index
    bool persistent = false;
    wds_profile_settings_type_v01 settings{};
};

/// One request that a client sent, with its outcome.
struct Request {
    uint64_t number = 0;     ///< counts all requests since the last factoryReset, from 1
    unsigned messageId = 0;  ///< RAV_WDS_*_V01
    std::vector<std::byte> bytes;
    int transportResult = RAV_CLIENT_OK;       ///< what rav_client_send_msg_sync returned
    uint32_t result = WDS_RESULT_SUCCESS_V01;  ///< result and error are the modem's answer
    uint32_t error = WDS_ERR_NONE_V01;
};

/// The modem of a development machine: it implements everything in platform/, and this interface
/// lets tests and tools play the modem and its other users.
///
/// Threads: every operation may be called on any thread, also from the hook, but for those that
/// say that they block. Notify, error and indication callbacks are made on a thread of the
/// emulator, never on a thread that called into it, one at a time and in the order of their causes,
/// with no lock of the emulator held. A client that is released within a callback gets no further
/// callback; its release does not wait for the callback that it is called from.
/// Ownership: one instance for the process, as a phone has one modem. It is never destroyed, so
/// that clients may still be released while the process ends.
/// Blocking: operations do not wait for clients, unless they say so.
class KIV_EMULATOR_API ModemEmulator {
public:
    /// The modem of this process; powered off, with empty tables, at first.
    static ModemEmulator& getInstance();

    ModemEmulator(const ModemEmulator&) = delete;
    ModemEmulator& operator=(const ModemEmulator&) = delete;

    /// Powers the modem on: notifiers report that the service appeared. No effect if it is on.
    void start();

    /// Powers the modem off: notifiers report that the service disappeared, clients get their error
    /// callback, requests in progress fail with RAV_CLIENT_ERR_SERVICE_GONE. Profiles that are not
    /// persistent are dropped. No effect if it is off.
    void stop();

    /// stop() and start(), as when the modem's own software restarts.
    void restart();

    bool isRunning() const;

    /// Chooses between the machine's clock, as at first, and a virtual one. False, and nothing
    /// changed, while the power is on or a request in progress. The virtual clock stands still
    /// until a sender waits and every thread is at rest, and then jumps to the next event, so that
    /// time-outs and delays cost no time. A request's callbacks have then returned before its
    /// sender goes on. The waits below are limited in real time with either clock.
    bool useVirtualClock(bool on);

    /// The time on the clock in use, from some moment in the past.
    std::chrono::milliseconds now() const;

    /// Advances the virtual clock to the next event, at most by atMost, and blocks until the event
    /// has been handled. Handling an event may advance the clock further, so loop on an absolute
    /// deadline. Actions and indications that wait for an idle modem are carried out first; the
    /// clock then stands still. With the machine's clock nothing else happens, and on a thread of
    /// the emulator nothing at all.
    void passTime(std::chrono::milliseconds atMost);

    /// Empties the tables without an indication, restores the capacities, and forgets faults,
    /// requests, the scenario and the hook. The power stays as it is. Blocks until a running hook
    /// has returned, unless called from the hook.
    void factoryReset();

    /// Fills empty tables with a few persistent profiles, as on a new modem. No indication.
    void installFactoryProfiles();

    /// Writes the tables with their capacities into a file that only its owner may read, since
    /// passwords are in it. A crash at any moment leaves the old file or the new one, and maybe a
    /// file FILE.XXXXXX beside it. False, with what went wrong, if the file could not be written,
    /// or if a table holds more than its capacity, as it does after a capacity was lowered.
    bool saveState(const std::string& path, std::string& error) const;

    /// Puts the tables of such a file in place of the modem's, without profiles that are not
    /// persistent. No indication. False, with path, place and reason, and nothing changed, if the
    /// file can't be used or the modem is on.
    bool loadState(const std::string& path, std::string& error);

    /// How many profiles a table can hold: 0 to 255, 255 at first. Profiles that it already holds
    /// stay. Returns false, and changes nothing, for any other number or an unknown type.
    bool setCapacity(wds_profile_type_enum_v01 type, unsigned capacity);

    /// The profiles of one table, ordered by index; none for an unknown type.
    std::vector<Profile> profiles(wds_profile_type_enum_v01 type) const;
    std::optional<Profile> profile(wds_profile_type_enum_v01 type, uint8_t index) const;

    /// Changes by another party (the network, another processor): as a client's request would,
    /// with indications to every client that registered for them; also while the power is off.
    /// False or no value for a full table, an unknown profile or an unknown type.
    std::optional<uint8_t> createProfile(wds_profile_type_enum_v01 type,
                                         const wds_profile_settings_type_v01& settings,
                                         bool persistent);
    bool modifyProfile(wds_profile_type_enum_v01 type, uint8_t index,
                       const wds_profile_settings_type_v01& settings);
    bool deleteProfile(wds_profile_type_enum_v01 type, uint8_t index);

    /// Sends a profile-changed indication to every client that registered for them and whose event
    /// list covers the profile, whatever the tables hold.
    void sendProfileChanged(const wds_profile_changed_ind_type_v01& change);

    /// Sends any bytes as an indication to every client that registered for profile changes,
    /// whatever its event list says.
    void sendIndication(unsigned messageId, const std::vector<std::byte>& bytes);

    /// The encoded form of a profile-changed indication, as rav_client_message_decode takes it.
    static std::vector<std::byte> encodeProfileChanged(
        const wds_profile_changed_ind_type_v01& change);

    /// Arms a fault. Of several that strike the same request the delays add up.
    void addFault(Fault fault);

    /// Begins a scenario: arms its faults, schedules its events from now on, and seeds the random
    /// choices. factoryReset ends it.
    void play(const Scenario& scenario);

    /// Carries out an action at once.
    void perform(const Action& action);

    /// Forgets all faults. A request that has met one keeps it.
    void clearFaults();

    /// The operations of the messaging client that can be made to fail.
    enum class Call {
        GetServiceObject,
        NotifierInit,
        RegisterNotifyCb,
        GetAnyService,
        ClientInit,
        RegisterErrorCb,
        MessageDecode
    };

    /// Makes the next such call return the result and do nothing; GetServiceObject returns null.
    /// clearFaults and factoryReset forget the failure.
    void failNextCall(Call call, int result);

    /// The requests since the last factoryReset, in the order in which the modem took them: the
    /// latest 16384 of them. One that is still in progress has no outcome yet.
    std::vector<Request> requests() const;

    /// Sees every request, and may rewrite its answer in place right before the answer is sent; the
    /// sender waits for the hook without a limit. The answer of a request that failed is null; its
    /// sender may have gone on already.
    using Hook = std::function<void(const Request& request, void* answer, size_t length)>;

    /// Calls the hook from now on, on the modem's thread and with no lock of the emulator held. A
    /// hook must not send requests. An empty function removes the hook. Blocks until a running hook
    /// has returned, unless called from the hook.
    void setHook(Hook hook);

    /// Writes a journal of every message and event from now on, one JSON object a line, in place of
    /// the one before. Client numbers count from 1 again if no client is open. Passwords are left
    /// out unless they are asked for, and so are the bytes of answers that may hold some. False,
    /// with errno, if the file can't be written.
    bool startJournal(const std::string& path, bool showSecrets = false);

    /// Puts a line of direction "program" into the journal, if there is one.
    void markJournal(const std::string& what);

    /// Ends the journal. False if not all of it could be written.
    bool finishJournal();

    /// Blocks until a client has bound, registered for indications and configured its profile
    /// events on the running modem. False after the time-out.
    bool waitForRegisteredClient(std::chrono::milliseconds timeout) const;

    /// Blocks until every callback and call of the hook caused so far has been made; answers that
    /// are being delayed don't count. False after the time-out, and at once from a callback, which
    /// can't wait for itself.
    bool waitForDeliveries(std::chrono::milliseconds timeout) const;

    /// How many notify, error and indication callbacks were begun so far.
    uint64_t callbacksSoFar() const;

    /// Open clients and notifiers; 0 when everyone has cleaned up.
    size_t openClients() const;

    /// The lines that were written to the diagnostic log since the last call, with the mask that
    /// each went out with, and how many users it has (Diag_LSM_Init less Diag_LSM_DeInit).
    struct DiagLine {
        uint32_t mask = 0;
        std::string text;
    };
    std::vector<DiagLine> takeDiagLines();
    int diagUsers() const;

private:
    ModemEmulator();
    ~ModemEmulator() = delete;

    Modem& modem;
};

}  // namespace kiv::emulator

#endif
