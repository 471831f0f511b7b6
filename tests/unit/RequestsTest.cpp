#include <gtest/gtest.h>

#include <sstream>

#include "ClientRequest.h"
#include "ClientResponse.h"
#include "ProfileKey.h"

namespace kiv {
namespace {

/// A key that remembers what it posted.
struct PostedRequests {
    std::vector<std::string> dumps;
    RequestFunction function() {
        return [this](const std::shared_ptr<ClientRequest>& request) {
            dumps.push_back(request->dump());
            return nullptr;
        };
    }
};

template <class Value>
std::string print(Value value) {
    std::ostringstream text;
    text << value;
    return text.str();
}

TEST(RequestsTest, EnumerationsPrintTheirNamesOrNumbers) {
    const char* names[] = {"Add", "Modify",   "Delete",  "Filter", "Match",
                           "Get", "Callback", "Refresh", "8"};
    for (int32_t i = 0; i < 9; ++i) {
        EXPECT_EQ(print(static_cast<ReqRespType>(i)), names[i]);
    }
    EXPECT_EQ(print(static_cast<ReqRespType>(-1)), "-1");
    EXPECT_EQ(print(Status::Success), "Success");
    EXPECT_EQ(print(Status::Failure), "Failure");
    EXPECT_EQ(print(static_cast<Status>(2)), "2");
}

TEST(RequestsTest, DumpsAreTheLogsTexts) {
    PostedRequests posted;
    const auto key = std::make_shared<ProfileKey>(TechType::Tech3gpp, 5, 12, posted.function());
    const auto odd =
        std::make_shared<ProfileKey>(static_cast<TechType>(7), 1, UINT64_MAX, posted.function());
    FilterProfileParams filter;
    filter.setApnName("ims");
    ModifyProfileParams modify;
    modify.setApnName("ims");
    CallbackRequest release;
    release.setReleaseToken(5);
    CallbackRequest registration;
    registration.setExpirationInfo([] {}, key, 12);
    CallbackRequest orphaned;
    orphaned.setExpirationInfo([] {}, {}, 12);
    ProfileParams params;
    params.setUserName("u");

    const std::pair<std::string, std::string> rows[] = {
        {AddRequest(AddProfileParams(false, TechType::Tech3gpp, false)).dump(),
         "Add 3GPP persist=false: IsIAProfile=false,"},
        {ModifyRequest(modify, key).dump(), "Modify 3GPP:5 token=12 ApnName=ims,"},
        {ModifyRequest(modify, nullptr).dump(), "Modify  ApnName=ims,"},
        {DeleteRequest(odd).dump(), "Delete 7:1 token=18446744073709551615"},
        {DeleteRequest(nullptr).dump(), "Delete "},
        {FilterRequest(filter).dump(), "Filter params: None: ApnName=ims,"},
        {MatchRequest(filter, key).dump(), "Match 3GPP:5 token=12 None: ApnName=ims,"},
        {GetRequest(key).dump(), "Get 3GPP:5 token=12"},
        {CallbackRequest().dump(), "Callback "},
        {release.dump(), "Callback Release 5"},
        {registration.dump(), "Callback Register 3GPP:5 token=1212"},
        {orphaned.dump(), "Callback Register null12"},
        {RefreshRequest(PDCRefreshStatus::Start).dump(), "Refresh "},
        {AddResponse(Status::Success, key).dump(), "Add Success 3GPP:5 token=12"},
        {AddResponse(Status::Failure, nullptr).dump(), "Add Failure "},
        {ModifyResponse(Status::Failure).dump(), "Modify Failure"},
        {DeleteResponse(Status::Success).dump(), "Delete Success"},
        {FilterResponse(Status::Success, {key, nullptr}).dump(),
         "Filter Success 3GPP:5 token=12,null,"},
        {MatchResponse(Status::Success, true).dump(), "Match Success true"},
        {MatchResponse(Status::Failure, false).dump(), "Match Failure false"},
        {GetResponse(Status::Success, params).dump(), "Get Success UserName=u,"},
        {GetResponse(Status::Failure, std::nullopt).dump(), "Get Failure "},
        {CallbackResponse(Status::Success).dump(), "Callback Success"},
        {RefreshResponse(static_cast<Status>(2)).dump(), "Refresh 2"},
    };
    for (const auto& [actual, expected] : rows) {
        EXPECT_EQ(actual, expected);
    }
}

TEST(ProfileKeyTest, PostsItsListenersAndOneRelease) {
    PostedRequests posted;
    auto key = std::make_shared<ProfileKey>(TechType::Tech3gpp2, 0, 3, posted.function());
    std::shared_ptr<IProfileKey> second = key;
    key->registerExpirationListener([] {});
    key.reset();
    EXPECT_EQ(posted.dumps, std::vector<std::string>{"Callback Register 3GPP2:0 token=33"});
    second.reset();
    EXPECT_EQ(posted.dumps.size(), 2U);
    EXPECT_EQ(posted.dumps.back(), "Callback Release 3");
}

}  // namespace
}  // namespace kiv
