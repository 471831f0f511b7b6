#ifndef TESTS_RELIABILITY_MODEL_H
#define TESTS_RELIABILITY_MODEL_H

#include <atomic>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "EmulatedModem.h"
#include "FilterProfileParams.h"
#include "ModemProfile.h"

namespace kiv::test {

/// Whether KIVR_SEED_FAULT names this fault of the checks themselves, which must then fail.
bool isSeeded(const std::string& fault);

/// The response to a filter, with its keys in order.
std::string joinKeys(const std::set<std::string>& keys);

/// One registered listener: what happened to it, and what the model expects.
struct Listener {
    std::atomic<int> calls{0};
    std::atomic<bool> isReleased{false};  ///< its key is being dropped
    std::atomic<bool> isDropped{false};
    std::atomic<bool> isLate{false};  ///< it was called after its key had been dropped
    int expected = 0;
};

/// What the dump of a request leaves out.
struct Hint {
    std::shared_ptr<FilterProfileParams> filter{};
    std::shared_ptr<Listener> listener{};
    uint64_t token = 0;    ///< whose listener it is
    bool isStart = false;  ///< of a refresh
};

/// Something that happened: the worker served a request or an indication, the modem answered, or a
/// new engine took over.
struct Event {
    enum class What { Request, Indication, Answer, Engine };
    What what = What::Request;
    std::string text{};  ///< the dump of the request or indication
    Hint hint{};
    emulator::Request asked{};
    std::vector<std::byte> answer{};  ///< as the library saw it

    template <class Record>
    static Record as(const std::vector<std::byte>& bytes) {
        Record record{};
        std::memcpy(&record, bytes.data(), std::min(sizeof(record), bytes.size()));
        return record;
    }
};

/// What the cache and the list of expected indications must hold, which requests must go to the
/// modem, and what clients must hear, given what the worker served and the modem answered. Whether
/// a filter fits and what a modification changes are the profiles' own matter, tested elsewhere.
class Model {
public:
    /// Takes the events; throws std::runtime_error at the first that must not be. Of responses,
    /// those to equal requests may come in any order among the latest few.
    void replay(const std::vector<Event>& events,
                std::map<std::string, std::list<std::string>>& responses);

    /// The profiles by their tokens, as they are dumped, and the expected indications.
    std::map<uint64_t, std::string> cached() const;
    const std::list<std::string>& expectedIndications() const { return pending; }
    /// What the modem holds, as the library would dump it.
    static std::multiset<std::string> dumpModem();
    /// Takes the number of the next token from the library.
    void adoptToken(uint64_t token) { nextToken = token; }

    bool isSteady = true;  ///< the modem is there, so that every request is sent

private:
    using Place = std::pair<TechType, int>;  ///< the id is -1 where there is none yet
    struct Entry {
        std::shared_ptr<ModemProfile> image{};  ///< null if it could not be read
        bool isOurs = false;
        std::vector<std::shared_ptr<Listener>> listeners{};
    };
    /// Of the library's own kind, so that equal profiles are read in the same order.
    using Entries = std::unordered_map<uint64_t, Entry>;

    const Event* ask(unsigned message, const Place& place);
    Entry read(const Place& place);
    void expect(const Entry& entry, const char* event);
    void drop(Entry& entry);
    std::string serve(const Event& request, const std::string& response);
    std::string add(TechType tech);
    void modify(Entry& entry);
    bool remove(Entries::iterator place, const Place& where);
    bool release(Entries::iterator place);
    std::string filter(const Hint& hint, const std::string& response);
    void refresh();
    void indicate(const std::string& text);

    Entries cache;
    std::list<std::string> pending;
    uint64_t nextToken = 0;
    bool isBlocked = false;
    std::vector<Event>::const_iterator next{}, end{};
};

}  // namespace kiv::test

#endif
