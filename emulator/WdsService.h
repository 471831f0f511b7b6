#ifndef EMULATOR_WDSSERVICE_H
#define EMULATOR_WDSSERVICE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
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

class WdsService;

/// A request of the service.
struct Message {
    unsigned id;
    const char* name;  ///< in journals and scenario files
    size_t requestLength;
    size_t responseLength;
    std::vector<std::byte> (*handle)(WdsService&, Session&, const std::byte* request);
};

std::span<const Message> allMessages();

/// Null for an id that no request of the service has.
const Message* findMessage(unsigned id);

/// The name of a request or an indication; "unknown" for any other id.
const char* messageName(unsigned id);

/// An answer that refuses a request with the given error.
std::vector<std::byte> refuseRequest(unsigned messageId, uint32_t error);

/// The modem's wireless data service: carries out requests on its profile tables.
///
/// Threads: one at a time; it knows neither threads nor time.
/// Ownership: plain value. Blocking: never.
class WdsService {
public:
    /// Whoever changes them here reports no change.
    ProfileTables tables;

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

    void installFactoryProfiles();
    /// The tables as shipped, as after a new stored configuration. Notes no change.
    void refreshConfiguration();
    void dropTransientProfiles();
    void reset();

    /// The changes that are yet to be reported, oldest first.
    std::vector<wds_profile_changed_ind_type_v01> takeChanges();

private:
    friend struct MessageHandler;

    // Each carries out one request: fills in the response and returns the error code.
    uint32_t handle(Session&, const wds_bind_subscription_req_msg_v01&, wds_common_resp_msg_v01&);
    uint32_t handle(Session&, const wds_indication_register_req_msg_v01&, wds_common_resp_msg_v01&);
    uint32_t handle(Session&, const wds_configure_profile_event_list_req_msg_v01&,
                    wds_common_resp_msg_v01&);
    uint32_t handle(Session&, const wds_create_profile_req_msg_v01&,
                    wds_create_profile_resp_msg_v01&);
    uint32_t handle(Session&, const wds_modify_profile_settings_req_msg_v01&,
                    wds_modify_profile_settings_resp_msg_v01&);
    uint32_t handle(Session&, const wds_delete_profile_req_msg_v01&,
                    wds_delete_profile_resp_msg_v01&);
    uint32_t handle(Session&, const wds_get_profile_settings_req_msg_v01&,
                    wds_get_profile_settings_resp_msg_v01&);
    uint32_t handle(Session&, const wds_get_profile_list_req_msg_v01&,
                    wds_get_profile_list_resp_msg_v01&);

    std::vector<wds_profile_changed_ind_type_v01> changes;
};

}  // namespace kiv::emulator

#endif
