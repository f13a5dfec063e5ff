// The parts of a connection, each by itself and without a socket.
#include "xpc/XPCConnectionState.h"
#include "xpc/XPCGathering.h"
#include "xpc/XPCInput.h"

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using Next = port::XPCInput::Next;
using Result = port::XPCReadResult;

constexpr port::XPCFrameClock::Time kNow{1h};

TEST(XPCConnectionState, NothingFollowsTheEndAndNothingIsInterruptedButAnOpenOne) {
    using State = port::XPCConnectionState;
    constexpr State::Name all[] = {State::Created, State::Connecting, State::Open, State::Interrupted,
                                   State::Over};
    for (const State::Name state : all) {
        EXPECT_FALSE(State::isLegal(State::Over, state));
        EXPECT_FALSE(State::isLegal(state, State::Created));
        EXPECT_EQ(State::isLegal(state, State::Over), state != State::Over);
        EXPECT_EQ(State::isLegal(state, State::Interrupted), state == State::Open);
    }
}

// One line a step: what happens, what the input says, who reads afterwards.
TEST(XPCInput, IsReadByOneThreadUntilTheSocketIsEmpty) {
    port::XPCInput input;
    port::XPCFrameClock::Call call;
    const auto end = [&](Result result, unsigned reads, bool mayRead = true) {
        const Next next = input.end(result, reads, mayRead, kNow, call);
        EXPECT_EQ(input.isReading(), next != Next::Done);
        EXPECT_EQ(input.isHeld(), next == Next::Done && !mayRead && result == Result::Read);
        return next;
    };
    EXPECT_TRUE(input.begin(false, true));
    EXPECT_FALSE(input.begin(false, true)) << "another thread reads";
    EXPECT_EQ(end(Result::Emptied, 1), Next::ReadOn) << "it may have come since";
    EXPECT_EQ(end(Result::Emptied, 2), Next::Done);
    EXPECT_TRUE(input.begin(true, true));
    EXPECT_EQ(end(Result::Emptied, 1), Next::ReadOn) << "the end has not been read";
    EXPECT_EQ(end(Result::Read, 4), Next::LaterTurn);
    EXPECT_EQ(end(Result::Read, 1, false), Next::Done);
    EXPECT_FALSE(input.takeUp(false));
    EXPECT_TRUE(input.takeUp(true));
    EXPECT_FALSE(input.takeUp(true));
    EXPECT_EQ(end(Result::WouldBlock, 1), Next::ReadOn) << "its event is spent";
    EXPECT_EQ(end(Result::WouldBlock, 2), Next::Done);
    EXPECT_FALSE(input.begin(false, false));
    EXPECT_TRUE(input.isHeld());
    EXPECT_TRUE(input.begin(false, true));
    input.stop();
    EXPECT_FALSE(input.isReading());
}

TEST(XPCFrameClock, RunsWhileThePeerAloneIsSlow) {
    const auto limit = kNow + port::kFrameDeadline;
    port::XPCFrameClock clock;
    bool late = true;
    EXPECT_FALSE(clock.read({}, true, kNow)) << "between frames";
    EXPECT_FALSE(clock.read(7, false, kNow)) << "more lies in the socket";
    EXPECT_EQ(clock.read(7, true, kNow), limit);
    EXPECT_FALSE(clock.read(7, true, kNow + 1s)) << "bytes that drip win nothing";
    EXPECT_FALSE(clock.read(8, true, kNow + 4s)) << "the call comes already";
    EXPECT_EQ(clock.expired(false, limit, late), limit + 4s);
    EXPECT_FALSE(late) << "another frame";
    EXPECT_EQ(clock.expired(true, limit + 4s, late), limit + 4s + 100ms);
    EXPECT_FALSE(late) << "its rest may lie unread";
    EXPECT_FALSE(clock.expired(false, limit + 5s, late));
    EXPECT_TRUE(late);
    clock.stop();
    EXPECT_FALSE(clock.expired(false, limit + 9s, late));
    EXPECT_FALSE(late);
}

TEST(XPCGathering, SmallMessagesWaitForABarriersTurnAndBarriersOfLargeOnesForEachOther) {
    constexpr auto kMessage = port::XPCFrameKind::Message;
    port::XPCGathering gathering(true);
    EXPECT_FALSE(gathering.isToWait(kMessage, 100)) << "nobody comes to write it";
    EXPECT_EQ(gathering.turnIsPutInLine(), port::Urgency::Now);
    EXPECT_FALSE(gathering.isToWait(port::XPCFrameKind::MessageWantsReply, 100));
    for (int round = 0; round < 2; ++round, gathering.written()) {
        for (std::size_t i = 0; i < 2 * port::kGatherFrames; ++i)
            EXPECT_TRUE(gathering.isToWait(kMessage, 100));
        EXPECT_FALSE(gathering.isToWait(kMessage, 100)) << "enough";
    }
    gathering.turnBegins();
    EXPECT_FALSE(gathering.isToWait(kMessage, port::kLargeFrameBytes));
    EXPECT_EQ(gathering.turnIsPutInLine(), port::Urgency::Soon);
    for (int barrier = 2; barrier < 8; ++barrier)
        EXPECT_FALSE(gathering.barrierJoins());
    EXPECT_TRUE(gathering.barrierJoins()) << "enough";
    EXPECT_FALSE(gathering.isToWait(kMessage, 100)) << "the turn is not at hand";
    EXPECT_TRUE(gathering.barrierJoins()) << "of a small message";
    port::XPCGathering alone(true);
    int late = 0;
    for (int message = 0; message < 100; ++message, alone.turnBegins()) {
        alone.isToWait(kMessage, port::kLargeFrameBytes);
        late += alone.turnIsPutInLine() == port::Urgency::Soon;
    }
    EXPECT_LE(late, 7) << "a sender that waits for each message waits for nothing";
    port::XPCGathering elsewhere(false);
    EXPECT_FALSE(elsewhere.isToWait(kMessage, port::kLargeFrameBytes));
    EXPECT_EQ(elsewhere.turnIsPutInLine(), port::Urgency::Now);
    EXPECT_FALSE(elsewhere.isToWait(kMessage, 100));
}

} // namespace
