#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>

#include "AddProfileParams.h"
#include "FilterProfileParams.h"
#include "ModifyProfileParams.h"
#include "Transcript.h"
#include "Util.h"

namespace kiv::test {
namespace {

using emulator::ModemEmulator;
using Call = ModemEmulator::Call;
using Key = std::shared_ptr<IProfileKey>;

constexpr auto GPP = TechType::Tech3gpp;
constexpr auto GPP2 = TechType::Tech3gpp2;
constexpr auto V4 = IPType::V4;
constexpr auto V6 = IPType::V6;
constexpr auto V4V6 = IPType::V4V6;
constexpr unsigned Create = RAV_WDS_CREATE_PROFILE_REQ_V01;
constexpr unsigned Modify = RAV_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01;
constexpr unsigned Delete = RAV_WDS_DELETE_PROFILE_REQ_V01;
constexpr unsigned Read = RAV_WDS_GET_PROFILE_SETTINGS_REQ_V01;
constexpr unsigned List = RAV_WDS_GET_PROFILE_LIST_REQ_V01;
constexpr unsigned Changed = RAV_WDS_PROFILE_CHANGED_IND_V01;

/// The settings of any ProfileParams, in as little space as the steps have.
struct Settings {
    std::optional<std::string> apn{};
    std::optional<IPType> home{}, roam{};
    std::optional<uint32_t> types{};
    std::optional<ApnClass> use{};
    std::optional<std::string> user{};
    std::optional<bool> emergency{};
};

template <class Params>
Params fill(Params params, const Settings& settings) {
    const auto set = [&params](auto setter, const auto& value) {
        if (value) {
            (params.*setter)(*value);
        }
    };
    set(&Params::setApnName, settings.apn);
    set(&Params::setHomeIPType, settings.home);
    set(&Params::setRoamIPType, settings.roam);
    set(static_cast<void (Params::*)(uint32_t)>(&Params::setApnTypesMask), settings.types);
    set(&Params::setApnClass, settings.use);
    set(&Params::setUserName, settings.user);
    set(&Params::setIsEmergencySupported, settings.emergency);
    return params;
}
ProfileParams with(const Settings& settings) { return fill(ProfileParams(), settings); }

ProfileParams everything() {
    ProfileParams params = with({"APN", V4, V6, 0xFFF, ApnClass::IMS, "user", true});
    params.setPassword("secret");
    params.setAuthType(AuthType::PAP_CHAP);
    params.setIsClatEnabled(true);
    params.setIsApnDisabled(false);
    params.setMaxPdnsConnPerBlock(70000);
    params.setMaxPdnConnTimer(-1);
    params.setPdnReqWaitInterval(7);
    return params;
}

/// Heads a step with its own text.
#define STEP(...) log.step(#__VA_ARGS__, [&] { __VA_ARGS__; })

/// A session with a modem as shipped, whose log has to be the committed one.
class GoldenTest : public testing::Test {
protected:
    ~GoldenTest() override {
        log.finish(testing::UnitTest::GetInstance()->current_test_info()->name());
    }

    Key add(const Settings& settings, TechType type = GPP, bool persistent = false,
            bool attach = false) {
        return manager.addProfile({with(settings), persistent, type, attach});
    }
    bool modify(const Key& key, const Settings& settings) {
        return manager.modifyProfile(fill(ModifyProfileParams(), settings), key);
    }
    std::list<Key> filter(const Settings& settings = {}, uint32_t criteria = 0) {
        FilterProfileParams params = fill(FilterProfileParams(), settings);
        params.addFilterMatchCriteria(criteria);
        return manager.filter(params);
    }
    Key find(int profileId, TechType type = GPP) {
        FilterProfileParams params;
        params.setFilterByProfileId(profileId);
        params.setFilterByTechType(type);
        const auto found = manager.filter(params);
        return found.empty() ? nullptr : found.front();
    }
    bool match(const Key& key, const Settings& settings) {
        return manager.match(fill(FilterProfileParams(), settings), key);
    }
    void refresh(PDCRefreshStatus status = PDCRefreshStatus::Complete) { manager.refresh(status); }
    /// The cache, and so many of the lines that are kept.
    void dump(int count) {
        log.step("manager.dump()", [] {});
        std::vector<std::string> lines = manager.dump();
        const auto logs = std::find(lines.begin(), lines.end(), "Logs") + 1;
        lines.erase(logs, std::max(logs, lines.end() - count));
        for (const std::string& line : lines) {
            log.append("dump", line);
        }
    }
    void everyOperation(Manager& on, const Key& key) {
        on.addProfile({everything(), true, GPP, true});
        on.modifyProfile(fill(ModifyProfileParams(), {"apn"}), key);
        on.deleteProfile(key);
        on.filter(FilterProfileParams());
        on.getProfile(key);
        on.match(FilterProfileParams(), key);
    }

    /// Another party's doing.
    static uint8_t create(
        const std::string& apn, wds_pdp_type_enum_v01 type,
        void (*change)(wds_profile_settings_type_v01&) = [](auto&) {}) {
        wds_profile_settings_type_v01 settings = settings3gpp(apn, type);
        change(settings);
        return *modem().createProfile(WDS_PROFILE_TYPE_3GPP_V01, settings, true);
    }
    static void tell(unsigned index, int change, int type = WDS_PROFILE_TYPE_3GPP_V01) {
        modem().sendProfileChanged({static_cast<wds_profile_type_enum_v01>(type), index,
                                    static_cast<wds_profile_change_enum_v01>(change)});
    }
    static void indicate(unsigned messageId, std::vector<unsigned char> bytes) {
        const auto* const first = reinterpret_cast<const std::byte*>(bytes.data());
        modem().sendIndication(messageId, {first, first + bytes.size()});
    }
    static void lose(unsigned messageId, unsigned nth = 1) {
        emulator::Fault fault;
        fault.messageId = messageId;
        fault.nth = nth;
        fault.drop = true;
        modem().addFault(fault);
    }

    Transcript log;
    Manager& manager = Manager::getInstance();
    std::array<Key, 6> k;
};

class ForeignKey : public IProfileKey {
    int getProfileId() override { return 1; }
    TechType getTechType() override { return GPP; }
    void registerExpirationListener(std::function<void()>) override {}
    std::string dump() override { return "foreign"; }
};

TEST_F(GoldenTest, Start) {
    STEP(Manager other; everyOperation(other, nullptr); other.refresh(PDCRefreshStatus::Complete));
    STEP(modem().stop());
    modem().installFactoryProfiles();
    STEP(manager.init(7, true));
    STEP(everyOperation(manager, nullptr));
    STEP(modem().start());
    STEP(manager.refresh(PDCRefreshStatus::Complete));
    STEP(k[0] = find(2); k[1] = find(0, GPP2); k[2] = add({"apn"}));
    STEP(k[0]->registerExpirationListener([] {}); k[2]->registerExpirationListener([] {}));
    STEP(manager.refresh(PDCRefreshStatus::Start));
    STEP(everyOperation(manager, k[0]));
    STEP(k[0]->registerExpirationListener([] {}); k[1].reset());
    STEP(manager.init(8, true));
    STEP(k[0].reset());
    STEP(tell(1, WDS_PROFILE_CHANGE_READY_V01));
    STEP(manager.refresh(static_cast<PDCRefreshStatus>(2)));
    dump(14);
}

TEST_F(GoldenTest, Operations) {
    STEP(k[0] = manager.addProfile({everything(), false, GPP, false}));
    STEP(k[1] = manager.addProfile({everything(), true, GPP2, true}));
    STEP(k[2] = add({"ia"}, GPP, true, true));
    STEP(add({"apn"}, static_cast<TechType>(7)));
    STEP(refuse(Create); add({"refused"}));
    STEP(lose(Create); add({"not answered"}));
    STEP(modify(k[0], {"other", V6, V6, 1, ApnClass::APP, "new user"}));
    STEP(modify(k[0], {"OTHER"}));
    STEP(refuse(Modify); modify(k[0], {"refused"}));
    STEP(lose(Modify); modify(k[1], {"not answered"}));
    STEP(manager.getProfile(k[0]));
    STEP(match(k[0], {"Other", V6}); match(k[0], {"apn"}));
    STEP(filter());
    STEP(filter({"ia", V4, {}, 0x201}, 0x3F));
    STEP(filter({"nothing"}));
    STEP(refuse(Delete); manager.deleteProfile(k[0]));
    STEP(manager.deleteProfile(k[0]));
    STEP(everyOperation(manager, k[0]));
    STEP(everyOperation(manager, nullptr));
    STEP(everyOperation(manager, std::make_shared<ForeignKey>()));
}

TEST_F(GoldenTest, Keys) {
    STEP(k[0] = add({"first"}); k[1] = add({"second"}, GPP, true));
    STEP(k[2] = find(1); k[3] = find(2));
    STEP(k[2].reset());
    STEP(k[0]->registerExpirationListener([] { ADD_FAILURE(); }));
    STEP(k[0].reset());
    STEP(k[1].reset(); k[3].reset());
    STEP(refresh(); k[0] = find(2));
    STEP(k[0].reset());
    STEP(k[0] = add({"third"}));
    STEP(refuse(Delete); k[0].reset());
    STEP(k[0] = add({"fourth"}); k[1] = add({"fifth"}); k[2] = find(3); k[3] = find(3));
    STEP(k[0]->registerExpirationListener([&] {
        everyOperation(manager, k[1]);
        refresh();
        k[1]->registerExpirationListener([] {});
        k[1].reset();
        manager.init(1, true);
        Util().setProfileUpdateAllowed(true);
    }));
    STEP(k[2]->registerExpirationListener(nullptr); k[3]->registerExpirationListener([] {}));
    STEP(k[3].reset());
    STEP(manager.deleteProfile(k[0]));
    STEP(k[0]->registerExpirationListener([] {}));
    STEP(k[0].reset(); k[2].reset());
}

TEST_F(GoldenTest, Indications) {
    STEP(k[0] = add({"mine"}));
    STEP(create("others", WDS_PDP_TYPE_IPV4_V01));
    STEP(modem().modifyProfile(WDS_PROFILE_TYPE_3GPP_V01, 1, settings3gpp("changed")));
    STEP(modem().deleteProfile(WDS_PROFILE_TYPE_3GPP_V01, 1));
    STEP(refuse(Read); tell(2, WDS_PROFILE_CHANGE_MODIFIED_V01));
    STEP(lose(Read); tell(9, WDS_PROFILE_CHANGE_CREATED_V01, WDS_PROFILE_TYPE_3GPP2_V01));
    STEP(filter());
    dump(0);
    STEP(tell(0, WDS_PROFILE_CHANGE_SUBSCRIPTION_V01));
    STEP(tell(0x1FF, 0));
    STEP(refuse(List); tell(0, 99));
    STEP(refuse(List, 2); tell(0, WDS_PROFILE_CHANGE_READY_V01));
    STEP(tell(1, WDS_PROFILE_CHANGE_DELETED_V01, 3));
    STEP(indicate(Changed + 1, {1, 2}));
    STEP(indicate(Changed, {}));
    STEP(indicate(Changed, {0x11, 0, 0}));
    STEP(log.together([] {
        tell(2, WDS_PROFILE_CHANGE_MODIFIED_V01);
        indicate(Changed, {0x10});
        tell(2, WDS_PROFILE_CHANGE_DELETED_V01);
    }));
    STEP(indicate(Changed + 1, {1}));
    STEP(log.together([] {
        for (unsigned i = 10; i < 16; ++i)
            tell(i, WDS_PROFILE_CHANGE_MODIFIED_V01);
    }));
    STEP(log.together([] {
        for (unsigned i = 10; i < 15; ++i)
            tell(i, WDS_PROFILE_CHANGE_READY_V01);
        Transcript::waitUntilHeld();
        modem().stop();
    }));
}

TEST_F(GoldenTest, ServiceLost) {
    STEP(k[0] = add({"gone"}));
    STEP(modem().stop());
    STEP(add({"without a modem"}); modify(k[0], {"changed"}); manager.deleteProfile(k[0]));
    STEP(refresh());
    STEP(modem().failNextCall(Call::GetAnyService, 5); modem().start());
    STEP(modem().stop());
    STEP(modem().failNextCall(Call::ClientInit, 6); modem().start());
    STEP(modem().stop(); modem().start());
    STEP(modem().failNextCall(Call::GetServiceObject, 0); manager.init(1, true));
    STEP(modem().failNextCall(Call::RegisterErrorCb, 7); manager.init(1, true));
    for (const unsigned registration :
         {RAV_WDS_BIND_SUBSCRIPTION_REQ_V01, RAV_WDS_INDICATION_REGISTER_REQ_V01,
          RAV_WDS_CONFIGURE_PROFILE_EVENT_LIST_REQ_V01}) {
        STEP(refuse(registration); manager.init(1, true));
    }
    STEP(log.together([] {
        modem().stop();
        modem().start();
    }));
}

TEST_F(GoldenTest, OddValues) {
    STEP(modem().stop());
    create("odd", static_cast<wds_pdp_type_enum_v01>(1), [](auto& settings) {
        settings.lte_roaming_pdp_type_valid = settings.umts_roaming_pdp_type_valid = 1;
        settings.lte_roaming_pdp_type = static_cast<wds_common_pdp_type_enum_v01>(7);
        settings.umts_roaming_pdp_type = WDS_COMMON_PDP_TYPE_NONE_V01;
        settings.override_home_pdp_type_valid = settings.auth_preference_valid = 1;
        settings.override_home_pdp_type = WDS_COMMON_PDP_TYPE_NONE_V01;
        settings.auth_preference = static_cast<wds_auth_pref_mask_v01>(0xFF);
        settings.apn_class_valid = settings.apn_type_mask_valid = 1;
        settings.apn_class = 200;
        settings.apn_type_mask = ~uint64_t{0};
    });
    for (const int type : {3, 4}) {
        wds_profile_settings_type_v01 settings{};
        settings.pdn_type_3gpp2_valid = settings.auth_protocol_3gpp2_valid = 1;
        settings.pdn_type_3gpp2 = static_cast<wds_profile_pdn_type_enum_v01>(type);
        settings.auth_protocol_3gpp2 = static_cast<wds_profile_auth_protocol_enum_v01>(9);
        modem().createProfile(WDS_PROFILE_TYPE_3GPP2_V01, settings, false);
        modem().createProfile(WDS_PROFILE_TYPE_3GPP2_V01, settings, true);
    }
    STEP(modem().start());
    STEP(refresh());
    for (const auto lie : {emulator::Lie::CountTooLarge, emulator::Lie::UnterminatedText,
                           emulator::Lie::IndexOutOfRange, emulator::Lie::UnknownEnums}) {
        emulator::Fault fault;
        fault.every = 1;
        fault.lie = lie;
        modem().addFault(fault);
        // A count too large makes the library read the whole list.
        if (lie != emulator::Lie::CountTooLarge) {
            STEP(refresh());
        }
        STEP(k[0] = add({"lie"}));
        modem().clearFaults();
    }
}

TEST_F(GoldenTest, DataCalls) {
    Util util;
    const auto call = [&](TechType type, const Settings& settings) {
        return util.findOrCreateProfileForSetupDataCall(type, with(settings));
    };
    STEP(Util other; other.setProfileUpdateAllowed(false));
    STEP(k[0] = call(GPP, {"apn", V4}));
    STEP(call(GPP, {"apn", V4}));
    STEP(call(GPP, {"apn", V4V6}));
    STEP(call(GPP, {{}, V4}));
    STEP(refuse(Create); call(GPP, {"apn", V6}));
    STEP(k[1] = call(GPP2, {"apn", V4, {}, {}, {}, "user"}));
    STEP(call(GPP2, {"apn", {}, {}, {}, {}, "user"}));
    STEP(util.setProfileUpdateAllowed(true));
    STEP(call(GPP, {"apn", V6, {}, 1}));
    STEP(k[2] = call(GPP, {"other", V6}));
    const auto emergency = [&](const Settings& settings) {
        return util.findOrCreateProfileForEmergencyDataCall(with(settings));
    };
    STEP(refuse(Create); emergency({"sos", V4}));
    STEP(emergency({"sos", V4, {}, 1}));
    STEP(emergency({"sos"}));
    STEP(emergency({"other"}));
    STEP(emergency({}));
    STEP(k[3] = add({"more", V4, {}, {}, {}, {}, true}));
    STEP(emergency({}));
    STEP(emergency({"more"}));
}

TEST_F(GoldenTest, LteAttach) {
    Util util;
    const auto attach = [&](const Settings& settings) {
        return util.findOrCreateProfileForLteAttach(with(settings));
    };
    const auto deleteFirst = [] { modem().deleteProfile(WDS_PROFILE_TYPE_3GPP_V01, 1); };
    STEP(create("modem", WDS_PDP_TYPE_IPV4V6_V01));
    STEP(log.atLine("kiv Found a loose match", deleteFirst); attach({"modem", V4}));
    STEP(create("modem", WDS_PDP_TYPE_IPV4V6_V01));
    STEP(refuse(Create); log.atLine("Manager::filter <", deleteFirst); attach({"modem"}));
    STEP(attach({}));
    STEP(attach({"ia", V4V6, V4, 0x100, {}, "user"}));
    STEP(attach({"ia", V4V6, V4}));
    STEP(attach({"ia", V6}));
    STEP(util.findOrCreateProfileForLteAttach(everything()));
    STEP(k[0] = add({"call", V4}));
    STEP(attach({"call", V4}));
    STEP(create("modem", WDS_PDP_TYPE_IPV4V6_V01));
    STEP(attach({"modem", V4V6}));
    STEP(attach({"modem", V4, V4}));
    STEP(util.setProfileUpdateAllowed(true); attach({"modem", V4}));
    STEP(modify(find(1), {"ia"}); attach({"call", V6}));
    const auto match = [&](int profileId, const Settings& settings) {
        return util.matchLteAttachProfileId(profileId, with(settings));
    };
    STEP(match(99, {"modem"}));
    STEP(match(k[0]->getProfileId(), {"call"}));
    STEP(match(1, {"call", V6}); match(3, {"modem", V6}));
    STEP(util.setProfileUpdateAllowed(false); match(3, {"modem", V4V6}));
    STEP(log.atLine("Manager::filter <", deleteFirst); match(1, {}));
}

TEST_F(GoldenTest, ApnClasses) {
    Util util;
    const std::list<ProfileParams> all = {with({"ims", V6, {}, {}, ApnClass::IMS}),
                                          with({"no class"}),
                                          with({"inet", V4, {}, {}, ApnClass::INET})};
    STEP(refuse(Create, 2); util.updateModemProfileByApnClass(all, {all.front()}));
    STEP(k[0] = add({"twice", {}, {}, {}, ApnClass::IMS}));
    STEP(util.updateModemProfileByApnClass({all.front()}, {all.front()}));
    STEP(refuse(Modify);
         util.updateModemProfileByApnClass({with({"new", V4, {}, {}, ApnClass::IMS})}, {}));
    emulator::Fault fault;
    fault.messageId = Modify;
    fault.consequences.push_back({emulator::Moment::AfterReply,
                                  {.kind = emulator::Action::Kind::DeleteProfile, .index = 2}});
    STEP(modem().addFault(fault);
         util.updateModemProfileByApnClass({with({"newer", V4, {}, {}, ApnClass::IMS})}, {}));
    STEP(util.updateModemProfileByApnClassAndTechType(ProfileParams(), GPP2));
}

TEST_F(GoldenTest, ApnTypes) {
    Util util;
    const auto update = [&](const std::list<Settings>& wanted) {
        std::list<ProfileParams> profiles;
        for (const Settings& settings : wanted)
            profiles.push_back(with(settings));
        util.updateAPNTypeBitmaskOnModemProfile(profiles);
    };
    STEP(k[0] = add({"v4", V4}); k[1] = add({"v6", V6}); k[2] = add({"v4v6", V4V6}));
    STEP(k[3] = add({"v4v6", V4V6}, GPP2));
    STEP(update({{"V4", V4, {}, 1}, {"v4", V6, {}, 2}, {"v4", IPType::UNKNOWN, {}, 4}}));
    STEP(update({{"v6", V4, {}, 1}, {"v6", V6, {}, 2}}));
    STEP(update({{"v6", V6, {}, 0x40}}));
    STEP(update({{"v4v6", V4, {}, 1}, {"v4v6", V6, {}, 2}}));
    STEP(update({{"v4v6"}, {{}, V4}}));
    STEP(util.setProfileUpdateAllowed(true); update({{"v4v6", V4, {}, 8}, {"v4v6", V6, {}, 16}}));
    STEP(update({}));
}

// The first line that a process writes there sets the mask of all others, so this is one test.
TEST_F(GoldenTest, DiagnosticLog) {
    // The worker's first line may be anywhere among the client's.
    STEP(manager.init(5, false));
    modem().takeDiagLines();
    const auto diag = [&](const std::string& heading, const std::function<void()>& action) {
        log.step(heading, action);
        for (const auto& line : modem().takeDiagLines()) {
            log.append("mask " + std::to_string(line.mask), line.text);
        }
    };
    diag("refresh", [&] { refresh(); });
    diag("filter", [&] { filter(); });
    diag("add, refused", [&] { refuse(Create), add({"apn"}); });
    diag("add, of no technology", [&] { add({"apn"}, static_cast<TechType>(7)); });
    STEP(manager.init(6, true));
    dump(14);
}

}  // namespace
}  // namespace kiv::test
