#ifndef EMULATOR_WDSSERVICE_H
#define EMULATOR_WDSSERVICE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "ModemEmulator.h"

namespace kiv::emulator {

/// The modem's profiles of one technology, by index. Indexes run from 1 to 255 for 3GPP and from
/// 0 to 254 for 3GPP2.
///
/// Threads: one at a time. Ownership: plain value. Blocking: never.
class ProfileTable {
public:
    static constexpr unsigned kMostProfiles = WDS_PROFILE_LIST_MAX_V01;

    explicit ProfileTable(wds_profile_type_enum_v01 technology) : type(technology) {}

    /// Stores a profile under the lowest free index; no value when the table is full.
    std::optional<uint8_t> create(const wds_profile_settings_type_v01& settings, bool persistent);
    /// Stores a profile under an index of its own: false if that is taken or out of range, or the
    /// table is full.
    bool insert(uint8_t index, const wds_profile_settings_type_v01& settings, bool persistent);
    bool modify(uint8_t index, const wds_profile_settings_type_v01& settings);
    bool remove(uint8_t index) { return profiles.erase(index) != 0; }
    void clear() { profiles.clear(); }
    void dropTransient();

    wds_profile_type_enum_v01 technology() const { return type; }
    unsigned firstIndex() const { return type == WDS_PROFILE_TYPE_3GPP_V01 ? 1 : 0; }
    unsigned lastIndex() const { return firstIndex() + kMostProfiles - 1; }

    const std::map<uint8_t, Profile>& all() const { return profiles; }

    /// False, and nothing changed, for more than kMostProfiles. Profiles beyond the number stay.
    bool setCapacity(unsigned number);
    unsigned getCapacity() const { return capacity; }

private:
    wds_profile_type_enum_v01 type;
    unsigned capacity = kMostProfiles;
    std::map<uint8_t, Profile> profiles;
};

/// All that a modem keeps.
struct ProfileTables {
    ProfileTable table3gpp{WDS_PROFILE_TYPE_3GPP_V01};
    ProfileTable table3gpp2{WDS_PROFILE_TYPE_3GPP2_V01};

    /// The table of a type; null for any other type.
    ProfileTable* find(wds_profile_type_enum_v01 type);
    /// Null for an unknown profile or type.
    const Profile* find(wds_profile_type_enum_v01 type, uint8_t index);
};

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
    std::vector<wds_profile_changed_ind_type_v01> changes;
};

}  // namespace kiv::emulator

#endif
