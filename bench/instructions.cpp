// Carries out each public operation again and again, for callgrind to count the instructions of
// all threads, the emulated modem's too. script/instructions runs it and compares.

#include <valgrind/callgrind.h>

#include <cstdio>
#include <functional>
#include <list>
#include <string>
#include <vector>

#include "LoadedLibrary.h"
#include "Util.h"

namespace {

using namespace kiv;
using kiv::bench::LoadedLibrary;

constexpr unsigned kProfiles = 64;
constexpr unsigned kLast = kProfiles - 1;

struct Operation {
    const char* name;
    unsigned times;
    std::function<void()> once;
};

/// One number for each operation: instructions for once, in the file that callgrind writes.
void count(LoadedLibrary& library, const Operation& operation) {
    // The first time fills caches and pools.
    for (int i = 0; i < 3; ++i) {
        operation.once();
    }
    library.settle();
    CALLGRIND_ZERO_STATS;
    for (unsigned i = 0; i < operation.times; ++i) {
        operation.once();
    }
    CALLGRIND_DUMP_STATS_AT(operation.name);
    library.settle();
    std::printf("%s %u\n", operation.name, operation.times);
}

std::vector<Operation> queries(LoadedLibrary& library, const std::shared_ptr<IProfileKey>& key) {
    Manager& manager = library.manager();
    return {
        {"getProfile", 200, [&, key] { manager.getProfile(key); }},
        {"match", 200, [&, key] { manager.match(LoadedLibrary::filterFor(kLast), key); }},
        {"filter/1of64+release", 100, [&] { manager.filter(LoadedLibrary::filterFor(kLast)); }},
        {"filter/0of64", 200, [&] { manager.filter(LoadedLibrary::filterFor(kProfiles)); }},
        {"filter/64of64+release", 10, [&] { manager.filter(FilterProfileParams()); }},
        {"registerExpirationListener+release", 100,
         [&, key] { library.key(kLast)->registerExpirationListener([] {}); }},
        {"dump", 50, [&] { manager.dump(); }},
    };
}

std::vector<Operation> changes(LoadedLibrary& library, const std::shared_ptr<IProfileKey>& key) {
    Manager& manager = library.manager();
    const AddProfileParams added(LoadedLibrary::settings("added"), false, TechType::Tech3gpp,
                                 false);
    const auto addAndDelete = [&, added] {
        manager.deleteProfile(manager.addProfile(added));
        library.settle();
    };
    const auto addAndRelease = [&, added] {
        manager.addProfile(added);
        library.settle();
    };
    const auto modify = [&, key, turn = 0]() mutable {
        ModifyProfileParams change;
        change.setUserName(++turn % 2 != 0 ? "one" : "other");
        manager.modifyProfile(change, key);
        library.settle();
    };
    const auto keep = [&, key] {
        ModifyProfileParams change;
        change.setHomeIPType(IPType::V4V6);
        manager.modifyProfile(change, key);
    };
    return {
        {"settle", 100, [&] { library.settle(); }},
        {"add+delete+settle", 100, addAndDelete},
        {"add+release+settle", 100, addAndRelease},
        {"modify+settle", 100, modify},
        {"modify/unchanged", 200, keep},
        {"refresh/64", 10, [&] { manager.refresh(PDCRefreshStatus::Complete); }},
    };
}

std::vector<Operation> policies(LoadedLibrary& library, Util& util) {
    const ProfileParams known = LoadedLibrary::settings(LoadedLibrary::apnName(kLast));
    return {
        {"util/setupDataCall", 50,
         [&, known] { util.findOrCreateProfileForSetupDataCall(TechType::Tech3gpp, known); }},
        {"util/emergencyDataCall", 50,
         [&, known] { util.findOrCreateProfileForEmergencyDataCall(known); }},
        {"util/lteAttach", 50, [&, known] { util.findOrCreateProfileForLteAttach(known); }},
        {"util/matchLteAttach", 50, [&, known] { util.matchLteAttachProfileId(kLast, known); }},
        {"util/apnTypeBitmask", 50,
         [&, known] {
             util.updateAPNTypeBitmaskOnModemProfile({known});
             library.settle();
         }},
    };
}

}  // namespace

int main() {
    LoadedLibrary library(kProfiles);
    Util util;
    {
        const auto key = library.key(kLast);
        for (const auto& operations : {queries(library, key), changes(library, key)}) {
            for (const Operation& operation : operations) {
                count(library, operation);
            }
        }
    }
    for (const Operation& operation : policies(library, util)) {
        count(library, operation);
    }
}
