#include "EventManager.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <new>
#include <vector>

#include "ClientRequest.h"
#include "EventFd.h"
#include "LoggedTest.h"
#include "Mailbox.h"

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
    manager->removeEventHandler(fd);
    EXPECT_THAT(closed, ElementsAre(fd));
    const std::string number = std::to_string(fd);
    EXPECT_THAT(takeLines(),
                ElementsAre("INFO fd=" + number + " is already in handlers",
                            "ERROR Cannot remove event handler",
                            "ERROR handlers.erase for fd " + number + ", returned 0!"));
    EXPECT_TRUE(add(fd));
}

TEST_F(EventManagerTest, DescriptorThatIsNotApprovedWaitsUntilItIs) {
    const int fd = readyFd();
    add(fd);
    EventManager::remApprovedFd(fd);
    manager->processEvents();
    EXPECT_THAT(called, ElementsAre());
    EXPECT_THAT(takeLines(), ElementsAre("INFO file descriptor " + std::to_string(fd) +
                                         " is not on the approved list, cannot process event"));
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
    EXPECT_THAT(takeLines(),
                ElementsAre("INFO file descriptor '" + std::to_string(pair[0]) + "' sent HUP."));
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
    EXPECT_THAT(takeLines(),
                ElementsAre("ERROR Cannot add event handler", "ERROR Cannot remove event handler",
                            "ERROR Cannot add event handler"));
    manager->processEvents();  // ends without the descriptor
    manager->processEvents();
    hasRoom = true;
    EXPECT_THAT(called, ElementsAre());
    manager->processEvents();
    EXPECT_THAT(called, ElementsAre(fd));
}

TEST_F(EventManagerTest, WhatTheSystemRefusesIsLogged) {
    const uint64_t most = ~uint64_t{0} - 1;
    int wakeFd = -1;
    // The constructor's first line names the descriptor.
    sscanf(log.texts().front().c_str(), "EventManager::addEventHandler(int %d", &wakeFd);
    ASSERT_EQ(write(wakeFd, &most, sizeof(most)), 8);
    testing::internal::CaptureStdout();
    manager->wake();
    testing::internal::GetCapturedStdout();
    EventManager::clearRead(-1, nullptr);
    drainEventFd(-1);
    Mailbox mailbox;
    ASSERT_EQ(write(mailbox.open(), &most, sizeof(most)), 8);
    EXPECT_FALSE(mailbox.post(ClientRequest(ReqRespType::Get)));
    EXPECT_THAT(
        takeLines(),
        ElementsAre("INFO Error in writing rv: -1, error: Resource temporarily unavailable",
                    "INFO Error while clearing the read buffer on fd -1",
                    "ERROR Error while clearing the read buffer on fd -1",
                    "ERROR error in writing rv: -1 error: Resource temporarily unavailable"));
}

TEST_F(EventManagerTest, EventsThatNobodyHandlesAreLogged) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    fds.push_back(ends[1]);
    add(ends[1]);
    close(ends[0]);  // a writer without a reader: EPOLLERR
    add(readyFd(), nullptr);
    add(readyFd(), [](int, void*) { throw std::bad_alloc(); });
    manager->processEvents();
    EXPECT_THAT(takeLines(),
                testing::UnorderedElementsAre("INFO Unhandled epoll event: EPOLLERR  [flags 010]",
                                              "ERROR no callback registered",
                                              "ERROR EventManager: out of memory"));
}

TEST_F(EventManagerTest, CallbackMayRemoveItselfAndOthersInMidPass) {
    // Whichever comes first removes both; the second is then looked up in vain.
    const auto removeAll = [](int fd, void* data) {
        testOf(data).called.push_back(fd);
        for (const int each : testOf(data).fds) {
            testOf(data).manager->removeEventHandler(each);
            EventManager::addApprovedFd(each);  // as another event manager would
        }
    };
    const auto removeAgain = [](int fd, void* data) {
        noteClose(fd, data);
        testOf(data).manager->removeEventHandler(fd);
    };
    add(readyFd(), removeAll, removeAgain);
    add(readyFd(), removeAll, removeAgain);
    manager->processEvents();
    ASSERT_EQ(called.size(), 1U);
    EXPECT_THAT(closed, testing::UnorderedElementsAreArray(fds));
    const int other = fds[called[0] == fds[0] ? 1 : 0];
    EXPECT_EQ(takeLines().back(), "INFO file descriptor '" + std::to_string(other) +
                                      "' does not have an event handler registered");
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
