// The part of the state file that is about its text.

#include "Json.h"
#include "Settings.h"
#include "StateFile.h"

namespace kiv::emulator {
namespace {

constexpr char kFormat[] = "kivr modem state";
constexpr uint64_t kVersion = 1;

JsonText describe(const ProfileTable& table) {
    JsonText profiles = JsonText::list();
    for (const auto& [index, profile] : table.all()) {
        JsonText settings = JsonText::object();
        for (const Setting& setting : allSettings()) {
            if (setting.belongsTo(profile.type) && setting.isPresent(profile.settings)) {
                settings.add(setting.name, setting.written(profile.settings));
            }
        }
        profiles.add(JsonText::object()
                         .add("index", index)
                         .add("persistent", profile.persistent)
                         .add("settings", settings));
    }
    return JsonText::object().add("capacity", table.getCapacity()).add("profiles", profiles);
}

void readProfile(JsonValue& value, ProfileTable& table) {
    value.object([&](JsonValue& profile) {
        const JsonValue index = profile.at("index");
        const auto number =
            static_cast<uint8_t>(index.number(table.firstIndex(), table.lastIndex()));
        const bool persistent = profile.at("persistent").flag();
        Settings settings{};
        profile.at("settings").object([&](JsonValue& members) {
            for (const Setting& setting : allSettings()) {
                auto member = setting.belongsTo(table.technology()) ? members.find(setting.name)
                                                                    : std::nullopt;
                if (member) {
                    setting.read(*member, settings);
                }
            }
        });
        if (!table.insert(number, settings, persistent)) {
            index.refuse("another profile has " + std::to_string(number));
        }
    });
}

void readTable(JsonValue value, ProfileTable& table) {
    value.object([&](JsonValue& members) {
        const auto most = members.at("capacity").number(0, ProfileTable::kMostProfiles);
        table.setCapacity(static_cast<unsigned>(most));
        members.at("profiles").each([&](JsonValue& profile) {
            if (table.all().size() == most) {
                profile.refuse("more than the capacity, " + std::to_string(most));
            }
            readProfile(profile, table);
        });
    });
}

}  // namespace

std::string formatState(const std::string& path, const ProfileTables& tables) {
    for (const ProfileTable* table : {&tables.table3gpp, &tables.table3gpp2}) {
        if (table->all().size() > table->getCapacity()) {
            throw StateFileError(
                path + ": not written, a table holds " + std::to_string(table->all().size()) +
                " profiles, more than its capacity, " + std::to_string(table->getCapacity()));
        }
    }
    const JsonText described = JsonText::object()
                                   .add("3gpp", describe(tables.table3gpp))
                                   .add("3gpp2", describe(tables.table3gpp2));
    return JsonText::object()
               .add("format", kFormat)
               .add("version", kVersion)
               .add("tables", described)
               .indentedText() +
           "\n";
}

ProfileTables parseState(const std::string& path, std::string_view text) {
    ProfileTables read;
    const auto readState = [&](JsonValue& state) {
        // These two first, so that the file of another version is told from a damaged one.
        const JsonValue format = state.at("format");
        if (format.text() != kFormat) {
            format.refuse(std::string("not '") + kFormat + "'");
        }
        state.at("version").number(kVersion, kVersion);
        state.at("tables").object([&](JsonValue& tables) {
            readTable(tables.at("3gpp"), read.table3gpp);
            readTable(tables.at("3gpp2"), read.table3gpp2);
        });
    };
    try {
        readJson(path, text, [&](JsonValue& value) { value.object(readState); });
    } catch (const JsonError& error) {
        throw StateFileError(error.what());
    }
    return read;
}

}  // namespace kiv::emulator
