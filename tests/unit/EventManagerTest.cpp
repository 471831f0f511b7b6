#include "EventManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "EventFd.h"
#include "LoggedTest.h"

static bool hasRoom = true;

extern "C" int epoll_ctl(int epoll, int operation, int fd, epoll_event* event) noexcept {
    if (operation == EPOLL_CTL_ADD && !hasRoom) {
        errno = ENOSPC;
        return -1;
    }
    return static_cast<int>(syscall(SYS_epoll_ctl, epoll, operation, fd, event));
}

namespace kiv {
namespace {

using testing::ElementsAre;

/// Descriptors that note their callbacks.
class EventManagerTest : public test::LoggedTest {
public:
    ~EventManagerTest() override {
        for (const int fd : fds) {
            EventManager::remApprovedFd(fd);
            close(fd);
        }
    }

    int readyFd() {
        fds.push_back(eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC));
        return fds.back();
    }
    static EventManagerTest& testOf(void* data) { return *static_cast<EventManagerTest*>(data); }
    static void note(int fd, void* data) {
        testOf(data).called.push_back(fd);
        drainEventFd(fd);
    }
    static void noteClose(int fd, void* data) { testOf(data).closed.push_back(fd); }
    bool add(int fd, EventCallback callback = note, CloseCallback closeCallback = noteClose) {
        return manager->addEventHandler(fd, callback, this, closeCallback, EPOLLIN);
    }

    std::unique_ptr<EventManager> manager = std::make_unique<EventManager>();
    std::vector<int> fds;
    std::vector<int> called;
    std::vector<int> closed;
};

TEST_F(EventManagerTest, MoreThanFourReadyDescriptorsAreServedOverSeveralPasses) {
    for (int i = 0; i < 6; ++i) {
        EXPECT_TRUE(add(readyFd()));
    }
    manager->processEvents();
    EXPECT_EQ(called.size(), 4U);
    manager->processEvents();
    EXPECT_THAT(called, testing::UnorderedElementsAreArray(fds));
    manager.reset();
    EXPECT_THAT(closed, ElementsAre()) << "destruction drops handlers without closing";
}

TEST_F(EventManagerTest, SecondRegistrationIsRefusedUntilTheFirstIsRemoved) {
    const int fd = readyFd();
    EXPECT_TRUE(add(fd));
    EXPECT_FALSE(add(fd, nullptr));
    manager->processEvents();
    EXPECT_THAT(called, ElementsAre(fd));
    manager->removeEventHandler(fd);
    log.clear();
    manager->removeEventHandler(fd);
    EXPECT_THAT(closed, ElementsAre(fd));
    EXPECT_EQ(log.count("Cannot remove event handler"), 1U);
    EXPECT_EQ(log.count("handlers.erase for fd " + std::to_string(fd) + ", returned 0!"), 1U);
    EXPECT_TRUE(add(fd));
}

TEST_F(EventManagerTest, DescriptorThatIsNotApprovedWaitsUntilItIs) {
    const int fd = readyFd();
    add(fd);
    EventManager::remApprovedFd(fd);
    manager->processEvents();
    EXPECT_THAT(called, ElementsAre());
    EventManager::addApprovedFd(fd);
    manager->processEvents();
    EXPECT_THAT(called, ElementsAre(fd));
}

TEST_F(EventManagerTest, HangUpRemovesAndClosesWithoutCallingTheCallback) {
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
    add(pair[0]);
    ASSERT_EQ(write(pair[1], "x", 1), 1);
    close(pair[1]);  // readable and hung up
    manager->processEvents();
    EXPECT_THAT(called, ElementsAre());
    EXPECT_THAT(closed, ElementsAre(pair[0]));
    EXPECT_FALSE(EventManager::isApprovedFd(pair[0]));
    EXPECT_EQ(close(pair[0]), -1);
}

TEST_F(EventManagerTest, WakeIsPrintedAndASignalMayComeLater) {
    testing::internal::CaptureStdout();
    manager->wake();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "wake()\n");
    manager->processEvents();
    const int fd = readyFd();
    drainEventFd(fd);
    add(fd);
    manager->signalLater(fd);
    manager->processEvents();  // ends without an event
    manager->processEvents();
    EXPECT_THAT(called, ElementsAre(fd));
}

TEST_F(EventManagerTest, DescriptorIsWatchedAsSoonAsTheSystemHasRoom) {
    hasRoom = false;
    const int removed = readyFd(), fd = readyFd();
    EXPECT_TRUE(add(removed));
    manager->removeEventHandler(removed);
    EXPECT_TRUE(add(fd));
    EXPECT_EQ(log.count("Cannot add event handler"), 2U);
    manager->processEvents();  // ends without the descriptor
    manager->processEvents();
    hasRoom = true;
    EXPECT_THAT(called, ElementsAre());
    manager->processEvents();
    EXPECT_THAT(called, ElementsAre(fd));
}

TEST_F(EventManagerTest, PassIsLoggedStepByStep) {
    char text[160];
    const int fd = readyFd();
    add(fd);
    log.clear();
    manager->processEvents();
    snprintf(text, sizeof(text), "file descriptor '%d' is processing events [callback:%p, data:%p]",
             fd, reinterpret_cast<void*>(note), static_cast<void*>(this));
    EXPECT_THAT(
        log.texts(),
        ElementsAre("there are 1 file descriptor(s) with events pending",
                    "processing event number: 0, handling 1 for " + std::to_string(fd), text));
    EXPECT_EQ(log.lines()[2].priority, ANDROID_LOG_VERBOSE);
}

TEST_F(EventManagerTest, EventThatNobodyHandlesIsNamed) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    fds.push_back(ends[1]);
    add(ends[1]);
    close(ends[0]);  // a writer without a reader: EPOLLERR
    add(readyFd(), nullptr);
    manager->processEvents();
    EXPECT_TRUE(log.contains("Unhandled epoll event: EPOLLERR  [flags 010]"));
    EXPECT_TRUE(log.contains("no callback registered"));
}

TEST_F(EventManagerTest, CallbackMayRemoveItselfAndOthersInMidPass) {
    // Whichever comes first removes both; the second is then looked up in vain.
    const auto removeAll = [](int fd, void* data) {
        testOf(data).called.push_back(fd);
        for (const int each : testOf(data).fds) {
            testOf(data).manager->removeEventHandler(each);
        }
    };
    const auto removeAgain = [](int fd, void* data) {
        noteClose(fd, data);
        testOf(data).manager->removeEventHandler(fd);
    };
    add(readyFd(), removeAll, removeAgain);
    add(readyFd(), removeAll, removeAgain);
    manager->processEvents();
    EXPECT_EQ(called.size(), 1U);
    EXPECT_THAT(closed, testing::UnorderedElementsAreArray(fds));
}

TEST_F(EventManagerTest, LateHangUpOfANumberThatWasRemovedClosesNothing) {
    // Whichever is hung up first removes the other, whose number is then somebody else's.
    int first[2], second[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, first), 0);
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, second), 0);
    fds = {first[0], second[0]};
    const auto removeOther = [](int fd, void* data) {
        noteClose(fd, data);
        const int other = testOf(data).fds[fd == testOf(data).fds[0] ? 1 : 0];
        if (testOf(data).closed.size() == 1) {
            testOf(data).manager->removeEventHandler(other);
        }
    };
    for (const int fd : fds) {
        add(fd, note, removeOther);
    }
    close(first[1]);
    close(second[1]);
    manager->processEvents();
    ASSERT_EQ(closed.size(), 2U);
    EXPECT_EQ(close(closed[0]), -1);
    EXPECT_EQ(close(closed[1]), 0);
    fds.clear();
}

}  // namespace
}  // namespace kiv
