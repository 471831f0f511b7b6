#ifndef KIVR_IPROFILEKEY_H
#define KIVR_IPROFILEKEY_H

#include <functional>
#include <memory>
#include <string>

#include "KivApi.h"
#include "ProfileTypes.h"

namespace kiv {

/// A client's handle to one profile. The library deletes a profile that it created as
/// non-persistent from the modem when the last handle to it is dropped.
///
/// Such a profile stays on the modem if the library has forgotten that it made the profile: after
/// another party changed it, after a refresh or a second Manager::init. So it does if the last
/// handle is dropped between the Start and the Complete of a refresh.
///
/// Threads: everything may be called on any thread, and the last owner may drop the key on any
/// thread at any time: inside a listener, during a refresh, after the Manager was re-initialised,
/// while the process ends.
/// Ownership: always owned by std::shared_ptr.
/// Blocking: dropping the last owner and registerExpirationListener wait for the worker thread.
/// Dropped on the worker thread itself (in a listener), the key is released without waiting,
/// after the work in hand. A thread that drops a key while it holds a lock which a listener takes
/// hangs: the worker thread waits in the listener for the lock, the thread for the worker.
/// In a child forked after Manager::init, keys may be dropped, and nothing else happens.
class KIV_API IProfileKey : public std::enable_shared_from_this<IProfileKey> {
public:
    virtual ~IProfileKey();

    /// The modem's profile id, 0 to 255. Keeps its value when the profile is gone.
    virtual int getProfileId() = 0;
    virtual TechType getTechType() = 0;

    /// Has callback called once when the profile behind this key is deleted by anybody, changed by
    /// another party, dropped by a refresh, or destroyed with the engine at a second Manager::init
    /// or at exit. In these last two the callback runs on the thread that ends the engine;
    /// otherwise on the worker thread, where library calls that wait return the empty result. After
    /// a change by another party the key still names the profile: register again.
    ///
    /// The callback is not called once this key has been dropped. Several callbacks are called in
    /// the order in which they were registered. A registration fails without a report if the
    /// profile is gone, during a refresh, and on the worker thread.
    ///
    /// The callback must not throw and must not block for long. It may drop keys, and it may end
    /// the process; static destructors must then not wait for threads that are inside a library
    /// call. A callback that forks must have its child exec or _exit.
    virtual void registerExpirationListener(std::function<void()> callback) = 0;

    /// One line of text, for the log.
    virtual std::string dump() = 0;

protected:
    IProfileKey();
    IProfileKey(const IProfileKey&) = delete;
    IProfileKey& operator=(const IProfileKey&) = delete;
};

}  // namespace kiv

#endif
