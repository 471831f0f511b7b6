#include "EventManager.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <thread>
#include <vector>

#include "EventFd.h"
#include "LogCapture.h"
#include "LogWrapper.h"

namespace kiv {
namespace {

using test::LogCapture;
using testing::ElementsAre;

/// Descriptors that note their callbacks.
class EventManagerTest : public testing::Test {
public:
    void SetUp() override { LogWrapper::getInstance().setLogWriter(std::make_unique<AdbWriter>()); }
    void TearDown() override {
        for (const int fd : fds) {
            EventManager::remApprovedFd(fd);
            close(fd);
        }
    }

    int readyFd() {
        const int fd = eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC);
        fds.push_back(fd);
        return fd;
    }
    static void note(int fd, void* data) {
        static_cast<EventManagerTest*>(data)->called.push_back(fd);
        drainEventFd(fd);
    }
    static void noteClose(int fd, void* data) {
        static_cast<EventManagerTest*>(data)->closed.push_back(fd);
    }
    bool add(int fd, EventCallback callback = note) {
        return manager->addEventHandler(fd, callback, this, noteClose, EPOLLIN);
    }

    LogCapture log;
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
    EXPECT_TRUE(log.contains("there are 4 file descriptor(s) with events pending"));
    manager->processEvents();
    EXPECT_THAT(called, testing::UnorderedElementsAreArray(fds));
}

TEST_F(EventManagerTest, WakeEndsABlockedPass) {
    std::thread other([this] { manager->wake(); });
    manager->processEvents();
    other.join();
    EXPECT_TRUE(log.contains("EventManager::wake() EX"));
}

TEST_F(EventManagerTest, SecondRegistrationIsRefusedAndKeepsTheFirst) {
    const int fd = readyFd();
    EXPECT_TRUE(add(fd));
    EXPECT_FALSE(add(fd, [](int, void*) { FAIL() << "the second callback was called"; }));
    EXPECT_TRUE(log.contains("fd=" + std::to_string(fd) + " is already in handlers"));
    manager->processEvents();
    EXPECT_THAT(called, ElementsAre(fd));
}

TEST_F(EventManagerTest, RegistrationThatEpollRefusesIsKeptAllTheSame) {
    EXPECT_TRUE(add(9999));
    EXPECT_TRUE(log.contains("Cannot add event handler"));
    EXPECT_TRUE(EventManager::isApprovedFd(9999));
    manager->removeEventHandler(9999);
    EXPECT_TRUE(log.contains("Cannot remove event handler"));
    EXPECT_THAT(closed, ElementsAre(9999));
    EXPECT_FALSE(EventManager::isApprovedFd(9999));
}

TEST_F(EventManagerTest, RemovingAnUnknownDescriptorOnlyLogs) {
    const int fd = readyFd();
    manager->removeEventHandler(fd);
    EXPECT_TRUE(log.contains("handlers.erase for fd " + std::to_string(fd) + ", returned 0!"));
    EXPECT_THAT(closed, ElementsAre());
}

TEST_F(EventManagerTest, DescriptorThatIsNotApprovedIsReportedUntilItIs) {
    const int fd = readyFd();
    const std::string line = "file descriptor " + std::to_string(fd) +
                             " is not on the approved list, cannot process event";
    add(fd);
    EventManager::remApprovedFd(fd);
    manager->processEvents();
    manager->processEvents();
    EXPECT_EQ(log.count(line), 2U);
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

TEST_F(EventManagerTest, EventThatNobodyHandlesIsNamed) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    fds.push_back(ends[1]);
    manager->addEventHandler(ends[1], note, this, nullptr, EPOLLIN);
    close(ends[0]);  // a writer without a reader: EPOLLERR
    manager->processEvents();
    EXPECT_TRUE(log.contains("Unhandled epoll event: EPOLLERR  [flags 010]"));
    EXPECT_THAT(called, ElementsAre());
}

TEST_F(EventManagerTest, MissingCallbackIsAnError) {
    add(readyFd(), nullptr);
    manager->processEvents();
    EXPECT_TRUE(log.contains("no callback registered"));
}

TEST_F(EventManagerTest, CallbackMayRemoveItselfAndOthersInMidPass) {
    // Whichever comes first removes both; the second is then looked up in vain.
    const auto removeAll = [](int fd, void* data) {
        auto* test = static_cast<EventManagerTest*>(data);
        test->called.push_back(fd);
        for (const int each : test->fds) {
            test->manager->removeEventHandler(each);
        }
    };
    add(readyFd(), removeAll);
    add(readyFd(), removeAll);
    manager->processEvents();
    EXPECT_EQ(called.size(), 1U);
    EXPECT_THAT(closed, testing::UnorderedElementsAreArray(fds));
}

TEST_F(EventManagerTest, CloseCallbackMayRemoveItsOwnHandler) {
    const int fd = readyFd();
    manager->addEventHandler(
        fd, note, this,
        [](int each, void* data) {
            noteClose(each, data);
            static_cast<EventManagerTest*>(data)->manager->removeEventHandler(each);
        },
        EPOLLIN);
    manager->removeEventHandler(fd);
    EXPECT_THAT(closed, ElementsAre(fd));
}

TEST_F(EventManagerTest, DestructionDropsHandlersWithoutClosing) {
    const int fd = readyFd();
    add(fd);
    manager.reset();
    EXPECT_THAT(closed, ElementsAre());
    EXPECT_TRUE(EventManager::isApprovedFd(fd));
}

TEST_F(EventManagerTest, DeferredWorkRunsAfterTheItemAndBeforeTheNext) {
    std::vector<int> order;
    struct Context {
        EventManager& manager;
        std::vector<int>& order;
    } context{*manager, order};
    for (int i = 0; i < 2; ++i) {
        manager->addEventHandler(
            readyFd(),
            [](int, void* data) {
                auto& [loop, log] = *static_cast<Context*>(data);
                loop.defer([&loop = loop, &log = log] {
                    log.push_back(2);
                    loop.defer([&log] { log.push_back(3); });
                });
                log.push_back(1);
            },
            &context, nullptr, EPOLLIN);
    }
    manager->processEvents();
    EXPECT_THAT(order, ElementsAre(1, 2, 3, 1, 2, 3));
}

}  // namespace
}  // namespace kiv
