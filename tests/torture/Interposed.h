#ifndef TESTS_TORTURE_INTERPOSED_H
#define TESTS_TORTURE_INTERPOSED_H

namespace kiv::test {

/// What the library asks of the system, and may not get. CMakeLists.txt puts the functions here in
/// place of those that the library calls.
enum class Call {
    EventFd,
    EpollCreate,
    EpollControl,
    EpollWait,
    Read,
    Write,
    Thread,
    Memory,
    MemoryOfThisThread  ///< of the one that tortures; the modem's callbacks get all theirs
};

/// While it lives, what its thread runs counts as the library's, or as not. The worker thread and
/// the modem's callbacks count as the library's, the modem itself does not.
class OnBehalfOf {
public:
    explicit OnBehalfOf(bool library);
    ~OnBehalfOf();

private:
    const bool before;
};

/// The nth such call of the library, on this thread or another, fails while this lives. One at a
/// time.
class Torture {
public:
    Torture(Call call, int nth);
    ~Torture();
    bool struck() const;

private:
    const OnBehalfOf library{true};
};

}  // namespace kiv::test

#endif
