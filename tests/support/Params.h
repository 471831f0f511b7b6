#ifndef TESTS_SUPPORT_PARAMS_H
#define TESTS_SUPPORT_PARAMS_H

#include <string>

#include "AddProfileParams.h"
#include "ModifyProfileParams.h"

namespace kiv::test {

/// Parameters, or anything else that starts empty, filled by one function.
template <class Value>
Value filled(void (*fill)(Value&)) {
    Value value;
    fill(value);
    return value;
}

inline AddProfileParams addParams(const std::string& apnName, bool persistent = false,
                                  TechType techType = TechType::Tech3gpp, bool attach = false) {
    ProfileParams params;
    params.setApnName(apnName);
    return {params, persistent, techType, attach};
}

inline ModifyProfileParams userName(const std::string& name) {
    ModifyProfileParams params;
    params.setUserName(name);
    return params;
}

}  // namespace kiv::test

#endif
