#ifndef KIVR_SRC_CASTTO_H
#define KIVR_SRC_CASTTO_H

#include <type_traits>
#include <typeinfo>

namespace kiv {

/// dynamic_cast to a class that nothing derives from, at a fraction of the cost.
template <class Final, class Base>
Final* castTo(Base* object) {
    static_assert(std::is_final_v<Final>);
    const bool isIt = object != nullptr && typeid(*object) == typeid(Final);
    return isIt ? static_cast<Final*>(object) : nullptr;
}

}  // namespace kiv

#endif
