#include "agent/serviceNotice.h"

#include "agent/stopSync.h"
#include "tests/support/serviceSocket.h"
#include "tests/support/temporaryDirectory.h"
#include "tests/support/turnedClock.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <thread>

namespace obrin {
namespace {

using namespace std::chrono_literals;
using test::ServiceSocket;
using test::TurnedClock;

class ServiceNotice : public testing::Test {
protected:
    ~ServiceNotice() override { closeServiceNotice(); }

    test::TemporaryDirectory directory;
    const std::string path = directory.path("notify");
    ServiceSocket manager{path};
};

TEST_F(ServiceNotice, NobodyIsToldUnlessSaidSo) {
    ASSERT_TRUE(manager.isBound());
    EXPECT_FALSE(isServiceNoticeOpen());
    EXPECT_EQ(nextSignOfLife(), Clock::Moment::max());
    tellAlive("x");
    tellCycle("x");
    tellStopping();
    EXPECT_EQ(manager.next(), "");
}

TEST_F(ServiceNotice, TheFirstCycleEndsTheStartAndLaterOnesAreSignsOfLife) {
    ASSERT_TRUE(openServiceNotice(path, 20s));
    tellCycle("2 resources; collecting: 1 of 200 samples");
    EXPECT_EQ(manager.next(), "READY=1\nWATCHDOG=1\nSTATUS=2 resources; collecting: 1 of 200 samples");
    tellCycle("2 resources; no forecast");
    EXPECT_EQ(manager.next(), "WATCHDOG=1\nSTATUS=2 resources; no forecast");
    tellCycle("");
    EXPECT_EQ(manager.next(), "WATCHDOG=1");
    tellAlive();
    EXPECT_EQ(manager.next(), "WATCHDOG=1");
    tellStopping();
    EXPECT_EQ(manager.next(), "STOPPING=1");
    EXPECT_EQ(manager.next(), "");
}

TEST_F(ServiceNotice, ASignOfLifeBeforeTheFirstCycleExtendsTheStart) {
    ASSERT_TRUE(openServiceNotice(path, 20s));
    tellAlive();
    EXPECT_EQ(manager.next(), "EXTEND_TIMEOUT_USEC=20000000");
    tellAlive("reading the archive: 40 %");
    EXPECT_EQ(manager.next(), "EXTEND_TIMEOUT_USEC=20000000\nSTATUS=reading the archive: 40 %");
    ASSERT_TRUE(openServiceNotice(path, 0s));
    tellAlive();
    EXPECT_EQ(manager.next(), "EXTEND_TIMEOUT_USEC=120000000");
}

TEST_F(ServiceNotice, AfterTheEndTheNextRunStartsAnew) {
    ASSERT_TRUE(openServiceNotice(path, 20s));
    tellCycle("");
    tellStopping();
    tellCycle("");
    EXPECT_EQ(manager.next(), "READY=1\nWATCHDOG=1");
    EXPECT_EQ(manager.next(), "STOPPING=1");
    EXPECT_EQ(manager.next(), "READY=1\nWATCHDOG=1");
}

TEST_F(ServiceNotice, ANameWithoutAFileWorksToo) {
    const std::string name = "@lumetra-test-" + std::to_string(::getpid());
    const ServiceSocket abstract(name);
    ASSERT_TRUE(abstract.isBound());
    ASSERT_TRUE(openServiceNotice(name, 20s));
    tellStopping();
    EXPECT_EQ(abstract.next(), "STOPPING=1");
}

TEST_F(ServiceNotice, ANameThatLeadsNowhereIsRefusedAndEndsWhatWasBefore) {
    const std::string longName = "/" + std::string(sizeof(sockaddr_un::sun_path), 'x');
    const std::string withZero("/a\0b", 4);
    for (const std::string& name : {std::string(), std::string("/"), std::string("@"), std::string("notify"),
                                    std::string("vsock:2:1"), longName, withZero}) {
        ASSERT_TRUE(openServiceNotice(path, 20s));
        EXPECT_FALSE(openServiceNotice(name, 20s)) << name;
        EXPECT_FALSE(isServiceNoticeOpen()) << name;
    }
}

TEST_F(ServiceNotice, TheLongestNameThatThereIsIsTaken) {
    std::string name = directory.path("");
    name += std::string(sizeof(sockaddr_un::sun_path) - 1 - name.size(), 'x');
    const ServiceSocket far(name);
    ASSERT_TRUE(far.isBound());
    ASSERT_TRUE(openServiceNotice(name, 20s));
    tellStopping();
    EXPECT_EQ(far.next(), "STOPPING=1");
}

TEST_F(ServiceNotice, NobodyListeningIsNoTrouble) {
    ASSERT_TRUE(openServiceNotice(directory.path("nobody"), 20s));
    tellCycle("x");
    const ServiceSocket late(directory.path("nobody"));
    tellCycle("x");
    EXPECT_EQ(late.next(), "READY=1\nWATCHDOG=1\nSTATUS=x"); // what was lost is told again
}

TEST_F(ServiceNotice, AFullSocketHoldsNobodyUp) {
    ASSERT_TRUE(openServiceNotice(path, 20s));
    tellCycle("first");
    for (int i = 0; i < 2000; ++i) // many times what a socket takes; a wait would last for ever
        tellAlive(std::string(1000, 'x'));
    EXPECT_EQ(manager.next(), "READY=1\nWATCHDOG=1\nSTATUS=first");
    int held = 0;
    while (!manager.next().empty())
        ++held;
    EXPECT_LT(held, 2000);
    tellAlive();
    EXPECT_EQ(manager.next(), "WATCHDOG=1");
}

TEST_F(ServiceNotice, ASignOfLifeIsDueInAQuarterOfTheTime) {
    TurnedClock clock;
    ASSERT_TRUE(openServiceNotice(path, 20s));
    EXPECT_EQ(nextSignOfLife(), clock.now());
    tellCycle("");
    EXPECT_EQ(nextSignOfLife(), clock.now() + 5s);
    clock.turn(3s);
    tellAlive();
    EXPECT_EQ(nextSignOfLife(), clock.now() + 5s);
    ::unlink(path.c_str());
    clock.turn(5s);
    tellAlive(); // lost, and yet no reason to try again at once
    EXPECT_EQ(nextSignOfLife(), clock.now() + 5s);
}

TEST_F(ServiceNotice, ALongSleepTellsOfLifeAllTheTimeAndIsNoLonger) {
    TurnedClock clock;
    beginExecuting();
    ASSERT_TRUE(openServiceNotice(path, 20s));
    tellCycle("");
    EXPECT_EQ(manager.next(), "READY=1\nWATCHDOG=1");
    const auto before = clock.now();
    EXPECT_EQ(javaThreadSyncSleep(17), ETIMEDOUT);
    EXPECT_EQ(clock.now() - before, 17s);
    EXPECT_EQ(clock.sleeps(), (TurnedClock::Seconds{5s, 5s, 5s, 2s}));
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(manager.next(), "WATCHDOG=1");
    EXPECT_EQ(manager.next(), "");
}

TEST_F(ServiceNotice, AStopRequestEndsASleepThatTellsOfLife) {
    TurnedClock clock;
    clock.holdSleeps();
    beginExecuting();
    ASSERT_TRUE(openServiceNotice(path, 20s));
    tellCycle("");
    std::thread stopper([&] {
        test::await([&] { return clock.sleeps().size() == 1; });
        clock.turn(5s);
        test::await([&] { return clock.sleeps().size() == 2; });
        pleaseStop();
    });
    EXPECT_EQ(javaThreadSyncSleep(60), 0);
    stopper.join();
}

} // namespace
} // namespace obrin
