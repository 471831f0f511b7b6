#ifndef EMULATOR_WDSSERVICE_H
#define EMULATOR_WDSSERVICE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "ProfileTable.h"

namespace kiv::emulator {

/// What one client arranged with the service.
struct Session {
    std::optional<uint32_t> subscription;
    bool reportsChanges = false;
    std::optional<std::vector<wds_profile_identifier_type_v01>> events;

    bool isComplete() const { return subscription && reportsChanges && events; }
    /// Whether a change of the profile is reported to this client.
    bool isReported(const wds_profile_changed_ind_type_v01& change) const;
};

/// The lengths of a request and of its answer.
struct MessageLengths {
    size_t request;
    size_t response;
};

/// The lengths of a message of the service; none for an id that it doesn't have.
std::optional<MessageLengths> findMessageLengths(unsigned messageId);

/// An answer that refuses a request with the given error.
std::vector<std::byte> refuseRequest(unsigned messageId, uint32_t error);

/// The modem's wireless data service: carries out requests on its profile tables.
///
/// Threads: one at a time; it knows neither threads nor time.
/// Ownership: plain value. Blocking: never.
class WdsService {
public:
    /// Carries out a request and returns its answer. The id must be one of the service's and the
    /// request of its length; what is inside may be anything.
    std::vector<std::byte> handleRequest(Session& session, unsigned messageId,
                                         const std::vector<std::byte>& request);

    /// Operations on profiles. Each returns an error code of the service.
    uint32_t createProfile(wds_profile_type_enum_v01 type,
                           const wds_profile_settings_type_v01& settings, bool persistent,
                           uint8_t& index);
    uint32_t modifyProfile(wds_profile_type_enum_v01 type, uint8_t index,
                           const wds_profile_settings_type_v01& settings);
    uint32_t deleteProfile(wds_profile_type_enum_v01 type, uint8_t index);

    /// The table of a type; null for any other type.
    ProfileTable* findTable(wds_profile_type_enum_v01 type);
    const Profile* findProfile(wds_profile_type_enum_v01 type, uint8_t index);

    void installFactoryProfiles();
    /// The tables as shipped, as after a new stored configuration. Notes no change.
    void refreshConfiguration();
    void dropTransientProfiles();
    void reset();

    ProfileTables tables() const { return {table3gpp, table3gpp2}; }
    /// Puts other tables in place of its own, and reports no change.
    void restore(const ProfileTables& tables);

    /// The changes that are yet to be reported, oldest first.
    std::vector<wds_profile_changed_ind_type_v01> takeChanges();

private:
    friend struct MessageTable;

    uint32_t bind(Session&, const wds_bind_subscription_req_msg_v01&, wds_common_resp_msg_v01&);
    uint32_t registerIndications(Session&, const wds_indication_register_req_msg_v01&,
                                 wds_common_resp_msg_v01&);
    uint32_t configureEvents(Session&, const wds_configure_profile_event_list_req_msg_v01&,
                             wds_common_resp_msg_v01&);
    uint32_t create(Session&, const wds_create_profile_req_msg_v01&,
                    wds_create_profile_resp_msg_v01&);
    uint32_t modify(Session&, const wds_modify_profile_settings_req_msg_v01&,
                    wds_modify_profile_settings_resp_msg_v01&);
    uint32_t remove(Session&, const wds_delete_profile_req_msg_v01&,
                    wds_delete_profile_resp_msg_v01&);
    uint32_t get(Session&, const wds_get_profile_settings_req_msg_v01&,
                 wds_get_profile_settings_resp_msg_v01&);
    uint32_t list(Session&, const wds_get_profile_list_req_msg_v01&,
                  wds_get_profile_list_resp_msg_v01&);

    void noteChange(wds_profile_type_enum_v01 type, uint8_t index,
                    wds_profile_change_enum_v01 change);

    ProfileTable table3gpp{WDS_PROFILE_TYPE_3GPP_V01};
    ProfileTable table3gpp2{WDS_PROFILE_TYPE_3GPP2_V01};
    std::vector<wds_profile_changed_ind_type_v01> changes;
};

}  // namespace kiv::emulator

#endif
