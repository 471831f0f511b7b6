#ifndef KIVR_SRC_NEVERDESTROYED_H
#define KIVR_SRC_NEVERDESTROYED_H

#include <new>
#include <utility>

namespace kiv {

/// Storage for an object of static duration that is used until the very end of the process, also
/// by the destructors of other static objects, and is therefore never destroyed.
template <class Object>
class NeverDestroyed {
public:
    template <class... Arguments>
    explicit NeverDestroyed(Arguments&&... arguments)
        : object(new (storage) Object(std::forward<Arguments>(arguments)...)) {}
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    Object& get() { return *object; }

private:
    alignas(Object) unsigned char storage[sizeof(Object)];
    Object* const object;
};

}  // namespace kiv

#endif
