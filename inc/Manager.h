#ifndef KIVR_MANAGER_H
#define KIVR_MANAGER_H

#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "AddProfileParams.h"
#include "FilterProfileParams.h"
#include "IProfileKey.h"
#include "KivApi.h"
#include "ModifyProfileParams.h"
#include "ProfileParams.h"
#include "ProfileTypes.h"

namespace kiv {

class ClientRequestManager;
class RequestGate;

/// The library's face: creates, changes, deletes, reads and finds the modem's data-connection
/// profiles.
///
/// Threads: every operation may be called on any thread at any time, also beside init. Clients
/// are served in the order in which they came.
/// Ownership: one instance for the process, from getInstance; it ends with the process.
/// Blocking: the profile operations wait until the worker thread has answered. Each request to
/// the modem that this takes lasts at most 1000 ms. dump waits for nobody.
/// Re-entrancy: on the worker thread, that is inside an expiration listener, the operations but
/// dump return the empty result at once and log an error; so does init.
/// Forking: in a child that is forked after init, all operations return the empty result, keys may
/// be dropped, and nothing is logged.
///
/// Nothing is thrown but by init. A failure shows as the empty result (no key, false, no keys, no
/// value): before init, between the Start and the Complete of a refresh, when memory runs out, for
/// a key that is not the library's own, and where an operation says so. The log has the reason.
class KIV_API Manager {
public:
    static Manager& getInstance();

    Manager();
    ~Manager();
    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    /// Chooses the log (the Android log if useAdbLog, else the diagnostic log) and starts the
    /// library. bindValue names the subscription to the modem's data service. The cache stays
    /// empty until the first refresh. A second call starts anew and then ends what ran before;
    /// keys of before then only name profiles that are gone. A thread that calls init while it
    /// holds a lock which a listener takes hangs, for the listeners are called before init returns.
    /// Throws std::system_error if the worker thread can't be started; what ran before goes on.
    /// Where memory runs out what ran before goes on too, and only the log tells. Ends the process
    /// where the system refuses a descriptor.
    void init(int bindValue, bool useAdbLog);

    /// Creates a new profile in the modem, also when a like one exists. Empty if the modem refuses
    /// or the technology is unknown. Drop the key to let a profile that is not persistent go.
    std::shared_ptr<IProfileKey> addProfile(const AddProfileParams& params);

    /// Changes the profile; no listener is called. False if the key's profile is gone; true does
    /// not promise that the modem accepted the change, getProfile tells.
    bool modifyProfile(const ModifyProfileParams& params, std::shared_ptr<IProfileKey> key);

    /// Deletes the profile from the modem, whoever created it and whoever else holds a key. False
    /// if the profile is gone or the modem refuses.
    bool deleteProfile(std::shared_ptr<IProfileKey> key);

    /// A new key for each cached profile that matches, in no particular order. Each of them keeps
    /// a profile that is not persistent on the modem until it is dropped.
    std::list<std::shared_ptr<IProfileKey>> filter(const FilterProfileParams& params);

    /// The settings of the profile; no value if it is gone.
    std::optional<ProfileParams> getProfile(std::shared_ptr<IProfileKey> key);

    /// Whether the profile matches; false if it is gone.
    bool match(const FilterProfileParams& params, std::shared_ptr<IProfileKey> key);

    /// Brackets a refresh of the modem's stored configuration. From Start to Complete all
    /// operations fail, and nothing but Complete or another init ends that. Complete reads every
    /// profile from the modem again: all keys of before name profiles that are gone.
    void refresh(PDCRefreshStatus status);

    /// The cache and the recent notable log lines, for a bug report. Passwords are included.
    std::vector<std::string> dump();

private:
    KIV_INTERNAL void replaceEngine(std::unique_ptr<ClientRequestManager> engine);
    KIV_INTERNAL std::shared_ptr<RequestGate> findGate();

    /// Guards the pointer only; never held while a request is processed.
    std::mutex engineMutex;
    std::unique_ptr<ClientRequestManager> clientRequestManager;
};

}  // namespace kiv

#endif
