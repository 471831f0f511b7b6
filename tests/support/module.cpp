// Another party's module: its static object holds a key until the module is unloaded.

#include <memory>

#include "IProfileKey.h"

namespace {

std::shared_ptr<kiv::IProfileKey>& held() {
    static std::shared_ptr<kiv::IProfileKey> key;
    return key;
}

}  // namespace

extern "C" void hold(const std::shared_ptr<kiv::IProfileKey>& key);
extern "C" void hold(const std::shared_ptr<kiv::IProfileKey>& key) { held() = key; }
