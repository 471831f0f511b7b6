#ifndef KIVR_SRC_RAVWDSPROXY_H
#define KIVR_SRC_RAVWDSPROXY_H

#include <atomic>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>

#include "EventFd.h"
#include "EventManager.h"
#include "ModemProfile.h"
#include "ProfileChangedInd.h"
#include "ProfileTypes.h"
#include "ThreadSafety.h"
#include "wds_v01.h"

namespace kiv {

/// The library's one connection to the modem's wireless data service: it follows the service up
/// and down, sends the profile requests and brings profile-changed indications to the worker
/// thread.
///
/// Threads: everything on the worker thread, except construction and destruction, which happen
/// while that thread does not run yet or any more. The three rav callbacks run on threads of the
/// messaging library and touch nothing but the eventfds and the indication queue.
/// Ownership: owned by the ProfileCache; owns its client, its notifier and its eventfds.
/// Blocking: each request waits up to 1000 ms for the modem, also when the event loop was stopped:
/// only getAllProfiles is cut short then. Nobody waits for the service.
/// Re-entrancy: the receiver of indications may call every operation.
class RavWdsProxy {
public:
    /// Aborts the process if the system grants no eventfd.
    RavWdsProxy(EventManager& eventManager, int bindValue);
    ~RavWdsProxy();
    RavWdsProxy(const RavWdsProxy&) = delete;
    RavWdsProxy& operator=(const RavWdsProxy&) = delete;

    /// Replaces the receiver of indications.
    void registerProfileChangedInd(std::function<void(ProfileChangedInd)> cb);
    /// cb is called when there was no memory for an indication, or some time after readAgain, and
    /// again until takeIndicationLost has been called.
    void registerIndicationLost(std::function<void()> cb);

    /// The requests. A failure is logged; false, empty or a short list then.
    /// Creates the profile in the modem and gives it its new id.
    bool add(ModemProfile& profile);
    /// Writes the settings of profile to the modem profile that is named by the other arguments.
    bool modify(ModemProfile& profile, TechType techType, int profileId);
    bool remove(TechType techType, int profileId);
    std::shared_ptr<ModemProfile> get(TechType techType, int profileId);
    /// Every profile, 3GPP ones first; an empty pointer for one that could not be read. Those that
    /// were read so far when the event loop is stopped.
    std::list<std::shared_ptr<ModemProfile>> getAllProfiles();
    /// Has everything read again after a while, as if the modem had told of a change.
    void readAgain();
    /// Whether an indication was lost since the last call. The caller then reads all profiles.
    bool takeIndicationLost() { return indicationLost.exchange(false); }

    /// One queued indication: allocated on the callback's thread, freed on the worker thread.
    struct IndInfo_t {
        rav_client_type client;
        unsigned int msgId;
        std::unique_ptr<unsigned char[]> buffer;
        unsigned int length;
        RavWdsProxy* proxy;
    };

    /// What the messaging library calls, on its threads, with the proxy as the last argument.
    static void ravNotifyCb(rav_client_type notifier, rav_service_object_type service,
                            rav_client_notify_event_type event, void* userData);
    static void ravErrorCb(rav_client_type client, int error, void* userData);
    static void ravIndCb(rav_client_type client, unsigned int msgId, void* indBuf,
                         unsigned int indBufLen, void* indCbData);

    /// What the event loop calls; arg is the proxy.
    static void handleSvcUp(int fd, void* arg);
    static void handleError(int fd, void* arg);
    static void handleIndication(int fd, void* arg);

private:
    void handleIndications();
    void registerRavSvcUp();
    void openClient();
    void registerRavIndications();
    std::optional<IndInfo_t*> takeIndication() KIV_EXCLUDES(indQueueMutex);
    bool handleIndInfo(const IndInfo_t& info);
    void handleProfileChangedInd(wds_profile_changed_ind_type_v01 ind);

    // Constant.
    EventManager& eventManager;
    const int bindValue;
    const rav_service_object_type serviceObject;

    // Worker thread only.
    rav_client_type client = nullptr;
    rav_client_type notifier = nullptr;
    rav_client_os_params osParams{};

    // Guarded. Raw pointers, which are meant not to be freed when the proxy goes.
    std::deque<IndInfo_t*> indQueue KIV_GUARDED_BY(indQueueMutex);
    std::mutex indQueueMutex;

    // Self-synchronised. There was no memory to queue or to handle one.
    std::atomic<bool> indicationLost{false};

    // Constant.
    OwnedFd svcUpFd;
    OwnedFd errorFd;
    OwnedFd indFd;

    // Worker thread only.
    std::function<void(ProfileChangedInd)> profileChangedIndCb;
    std::function<void()> indicationLostCb;
};

}  // namespace kiv

#endif
