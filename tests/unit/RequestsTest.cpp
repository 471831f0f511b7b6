#include <gtest/gtest.h>

#include "ClientRequest.h"
#include "ClientResponse.h"
#include "Params.h"
#include "ProfileKey.h"

namespace kiv {
namespace {

TEST(RequestsTest, DumpsAreTheLogsTexts) {
    const RequestFunction ignore = [](const auto&) { return nullptr; };
    const auto key = std::make_shared<ProfileKey>(TechType::Tech3gpp, 5, 12, ignore);
    const auto odd = std::make_shared<ProfileKey>(static_cast<TechType>(7), 1, UINT64_MAX, ignore);
    const auto modify = test::userName("u");
    const FilterProfileParams filter(modify);
    CallbackRequest registration;
    registration.setExpirationInfo([] {}, key, 12);
    CallbackRequest orphaned;
    orphaned.setExpirationInfo([] {}, {}, 12);

    const std::pair<std::string, std::string> rows[] = {
        {ModifyRequest(modify, nullptr).dump(), "Modify  UserName=u,"},
        {DeleteRequest(odd).dump(), "Delete 7:1 token=18446744073709551615"},
        {MatchRequest(filter, key).dump(), "Match 3GPP:5 token=12 None: UserName=u,"},
        {registration.dump(), "Callback Register 3GPP:5 token=1212"},
        {orphaned.dump(), "Callback Register null12"},
        {FilterResponse(Status::Success, {key, nullptr}).dump(),
         "Filter Success 3GPP:5 token=12,null,"},
        {MatchResponse(Status::Success, true).dump(), "Match Success true"},
        {RefreshResponse(static_cast<Status>(2)).dump(), "Refresh 2"},
        {testing::PrintToString(static_cast<ReqRespType>(-1)), "-1"},
    };
    for (const auto& [actual, expected] : rows) {
        EXPECT_EQ(actual, expected);
    }
}

}  // namespace
}  // namespace kiv
