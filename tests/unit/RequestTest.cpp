#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "ClientRequest.h"
#include "ClientResponse.h"
#include "ModemProfile.h"
#include "Params.h"
#include "ProfileKey.h"

namespace kiv {
namespace {

using Request = std::shared_ptr<ClientRequest>;
using Response = std::shared_ptr<ClientResponse>;
using Key = std::shared_ptr<IProfileKey>;

TEST(Request, DumpsItsTypeAndWhatItCarries) {
    const Key key = std::make_shared<ProfileKey>(TechType::Tech3gpp2, 5, 12, RequestFunction{});
    CallbackRequest release;
    CallbackRequest listening;
    CallbackRequest orphaned;
    release.setReleaseToken(5);
    listening.setExpirationInfo([] {}, key, 12);
    orphaned.setExpirationInfo([] {}, {}, 12);
    EXPECT_FALSE(release.hasExpirationInfo() || listening.hasReleaseToken());
    const ModifyProfileParams changes = test::userName("u");
    const std::pair<std::string, std::string> rows[] = {
        {AddRequest(test::addParams("a")).dump(),
         "Add 3GPP persist=false: ApnName=a,IsIAProfile=false,"},
        {ModifyRequest(changes, key).dump(), "Modify 3GPP2:5 token=12 UserName=u,"},
        {ModifyRequest(changes, nullptr).dump(), "Modify  UserName=u,"},
        {DeleteRequest(key).dump(), "Delete 3GPP2:5 token=12"},
        {FilterRequest(FilterProfileParams(changes)).dump(), "Filter params: None: UserName=u,"},
        {MatchRequest(FilterProfileParams(), key).dump(), "Match 3GPP2:5 token=12 None: "},
        {GetRequest(nullptr).dump(), "Get "},
        {CallbackRequest().dump(), "Callback "},
        {release.dump(), "Callback Release 5"},
        {listening.dump(), "Callback Register 3GPP2:5 token=1212"},
        {orphaned.dump(), "Callback Register null12"},
        {RefreshRequest(PDCRefreshStatus::Complete).dump(), "Refresh "},
        {ClientRequest(static_cast<ReqRespType>(9)).dump(), "9 "},
        {ClientResponse(ReqRespType::Get).dump(), "Get Success"},
        {ModifyResponse(static_cast<Status>(2)).dump(), "Modify 2"},
        {AddResponse(Status::Success, key).dump(), "Add Success 3GPP2:5 token=12"},
        {AddResponse(Status::Failure, nullptr).dump(), "Add Failure "},
        {FilterResponse(Status::Success, {key, nullptr}).dump(),
         "Filter Success 3GPP2:5 token=12,null,"},
        {MatchResponse(Status::Success, true).dump(), "Match Success true"},
        {GetResponse(Status::Failure, std::nullopt).dump(), "Get Failure "},
        {GetResponse(Status::Success, changes).dump(), "Get Success UserName=u,"},
    };
    for (const auto& [dumped, text] : rows) {
        EXPECT_EQ(dumped, text);
    }
    EXPECT_EQ(testing::PrintToString(ReqRespType::Callback) +
                  testing::PrintToString(static_cast<Status>(2)),
              "Callback2");
}

TEST(Request, GettersCopyAndLeaveTheResponseAsItIs) {
    const Key key = std::make_shared<ProfileKey>(TechType::Tech3gpp, 1, 1, RequestFunction());
    const AddResponse added(Status::Success, key);
    const FilterResponse filtered(Status::Success, {key, key});
    const std::optional<ProfileParams> params = test::userName("u");
    const GetResponse got(Status::Success, params);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(added.getAddProfileKey(), key);
        EXPECT_EQ(filtered.getFilterResult(), std::list<Key>({key, key}));
        EXPECT_EQ(got.getParams()->getUserName(), "u");
    }
    EXPECT_EQ(ModifyRequest(test::userName("u"), key).getModifyProfileKey(), key);
    EXPECT_EQ(MatchRequest(FilterProfileParams(), key).getMatchKey(), key);
    const RefreshRequest refresh(PDCRefreshStatus::Start);
    EXPECT_EQ(refresh.getRefreshStatus(), PDCRefreshStatus::Start);
}

TEST(ProfileKeyTest, PostsItsListenersAndItsReleaseOnce) {
    std::vector<std::string> posted;
    const std::function<Response(Request)> post = [&](Request request) {
        posted.push_back(request->dump());
        return nullptr;
    };
    auto key = std::make_shared<ProfileKey>(TechType::Tech3gpp, 5, 12, post);
    EXPECT_EQ(key->getToken(), 12U);
    key->registerExpirationListener([] {});
    EXPECT_FALSE(expired(ExpirationListener([] {}, key)));
    EXPECT_TRUE(expired(std::pair<std::function<void()>, std::weak_ptr<IProfileKey>>()));
    key.reset();
    EXPECT_EQ(posted, std::vector<std::string>(
                          {"Callback Register 3GPP:5 token=1212", "Callback Release 12"}));
}

TEST(ProfileKeyTest, WithoutAFunctionThrowsButCanBeDropped) {
    const auto key = std::make_shared<ProfileKey>(TechType::Tech3gpp, 1, 1, RequestFunction{});
    EXPECT_THROW(key->registerExpirationListener([] {}), std::bad_function_call);
    const ProfileKey own(TechType::Tech3gpp, 1, 1, {});
    EXPECT_THROW(RequestFunction{}(nullptr), std::bad_function_call);
}

}  // namespace
}  // namespace kiv
