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
/// Threads: everything may be called on any thread, and the last owner may drop the key on any
/// thread at any time: inside a listener, during a refresh, after the Manager was re-initialised,
/// while the process ends.
/// Ownership: always owned by std::shared_ptr.
/// Blocking: dropping the last owner and registerExpirationListener wait for the worker thread.
/// Dropped on the worker thread itself (in a listener), the key is released without waiting,
/// after the work in hand.
class KIV_API IProfileKey : public std::enable_shared_from_this<IProfileKey> {
public:
    virtual ~IProfileKey();

    /// The modem's profile id, 0 to 255. Keeps its value when the profile is gone.
    virtual int getProfileId() = 0;
    virtual TechType getTechType() = 0;

    /// Has callback called once when the profile behind this key goes away or is read anew:
    /// deleted, changed by another party, dropped by a refresh, or gone with the engine at a second
    /// Manager::init or at exit. In these last two it runs on the thread that ends the engine;
    /// otherwise on the worker thread, where library calls that wait return the empty result.
    /// It is not called once this key has been dropped. The callback must not throw and must not
    /// block for long. It may drop keys, and it may end the process; static destructors must then
    /// not wait for threads that are inside a library call.
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
