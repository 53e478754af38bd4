#include "BtpFixture.h"
#include "StdoutCapture.h"
#include "facade/LogFacade.h"

#include <algorithm>

namespace {
class Transmit : public BtpFixture
{
protected:
    Transmit() { restartFrameNumbers(); }

    static int transmit(const Bytes& message)
    {
        return BTP_Transmit(message.data(), static_cast<unsigned>(message.size()));
    }

    /// What the fragments carry, header bytes left out.
    static Bytes carried()
    {
        Bytes all;
        for (const Bytes& fragment : sent)
            all.insert(all.end(), fragment.begin() + 1, fragment.end());
        return all;
    }
};

struct FrameOnAir
{
    unsigned fragments;
    unsigned firstHeader;
    unsigned firstPayload;
};
struct CutRow
{
    unsigned length;
    std::vector<FrameOnAir> frames;
};

TEST_F(Transmit, CutsAMessageIntoFramesWhoseFirstFragmentIsTheShortOne)
{
    const std::vector<CutRow> rows = {
        {0, {}},
        {1, {{1, 0x80, 1}}},
        {10, {{1, 0x80, 10}}},
        {69, {{1, 0x80, 69}}},
        {70, {{2, 0x81, 1}}},
        {137, {{2, 0x81, 68}}},
        {138, {{2, 0x81, 69}}},
        {139, {{3, 0x82, 1}}},
        {1000, {{15, 0x8E, 34}}},
        {1103, {{16, 0x8F, 68}}},
        {1104, {{16, 0x8F, 69}}},
        {1105, {{17, 0x80, 1}}},
        {1118, {{17, 0x80, 14}}},
        {1120, {{17, 0x80, 16}}},
        {1190, {{17, 0x80, 16}, {2, 0x91, 1}}},
        {2240, {{17, 0x80, 16}, {17, 0x90, 16}}},
        {4475, {{17, 0x80, 16}, {17, 0x90, 16}, {17, 0xA0, 16}, {17, 0xB0, 11}}},
        {4480, {{17, 0x80, 16}, {17, 0x90, 16}, {17, 0xA0, 16}, {17, 0xB0, 16}}},
    };
    for (const CutRow& row : rows) {
        SCOPED_TRACE(row.length);
        restartFrameNumbers();
        const Bytes message = counting(row.length);
        ASSERT_EQ(transmit(message), 1);
        auto fragment = sent.begin();
        for (const FrameOnAir& frame : row.frames) {
            ASSERT_GE(sent.end() - fragment, frame.fragments);
            EXPECT_EQ(fragment->front(), frame.firstHeader);
            EXPECT_EQ(fragment->size(), 1 + frame.firstPayload);
            for (unsigned left = frame.fragments - 1; left > 0; --left) {
                ++fragment;
                EXPECT_EQ(fragment->front(), (frame.firstHeader & 0x70) | (left - 1));
                EXPECT_EQ(fragment->size(), 70U);
            }
            ++fragment;
        }
        EXPECT_EQ(fragment, sent.end());
        EXPECT_EQ(carried(), message);
    }
}

bool announcesTooMuch(unsigned length)
{
    const unsigned last = length % 1120;
    return length > 1120 && last >= 1 && last <= 69;
}

TEST_F(Transmit, SendsZeroesAfterALastFragmentThatAnnouncesTheWholeMessage)
{
    int odd = 0;
    for (unsigned length = 1; length <= kBtpMessageLength; ++length) {
        sent.clear();
        const Bytes message = counting(length, 1);
        ASSERT_EQ(transmit(message), 1);
        if (!announcesTooMuch(length)) {
            ASSERT_EQ(carried(), message) << length;
            continue;
        }
        ++odd;
        const unsigned held = length % 1120;
        ASSERT_EQ(sent.back().size(), (length + 1) % 256) << length;
        Bytes expected = message;
        expected.resize(length - held + std::max<std::size_t>(held, 256), 0);
        // An announced length of 256 or 512 leaves not even the header.
        expected.resize(length - held + std::max<std::size_t>(sent.back().size(), 1) - 1);
        if (sent.back().empty())
            sent.pop_back();
        ASSERT_EQ(carried(), expected) << length;
    }
    EXPECT_EQ(odd, 207);
}

TEST_F(Transmit, PausesAfterEverySecondFragmentAcrossFrames)
{
    std::vector<std::size_t> sentAtPause;
    onDelay = [&] { sentAtPause.push_back(sent.size()); };
    ASSERT_EQ(transmit(counting(1120 + 138)), 1);  // 17 fragments, then 2
    EXPECT_EQ(delays, std::vector<unsigned>(9, 3));
    for (std::size_t i = 0; i < sentAtPause.size(); ++i)
        EXPECT_EQ(sentAtPause[i], 2 * (i + 1));
}

struct RefusalRow
{
    const char* name;
    std::vector<std::size_t> refused;  // numbers of the refused notifications, from 1
    int result;
    std::size_t notifications;
    std::vector<unsigned> delays;
};

TEST_F(Transmit, TriesARefusedFragmentOnceMoreAndThenGivesTheMessageUp)
{
    const std::vector<RefusalRow> rows = {
        {"first fragment refused once", {1}, 1, 4, {3}},
        {"every fragment refused once", {1, 3, 5}, 1, 6, {3}},
        {"first fragment refused twice", {1, 2}, 0, 2, {200}},
        {"last fragment refused twice", {3, 4}, 0, 4, {3, 200}},
    };
    for (const RefusalRow& row : rows) {
        SCOPED_TRACE(row.name);
        restartFrameNumbers();
        accept = [&row] {
            return std::find(row.refused.begin(), row.refused.end(), sent.size()) == row.refused.end();
        };
        EXPECT_EQ(transmit(counting(139)), row.result);
        EXPECT_EQ(sent.size(), row.notifications);
        EXPECT_EQ(delays, row.delays);
        accept = nullptr;
        transmit(counting(1));
        EXPECT_EQ(sent.back()[0], 0x90) << "the frame number goes on after success and failure";
    }
}

TEST_F(Transmit, CountsFramesModuloEightAcrossMessages)
{
    for (unsigned message = 0; message < 17; ++message) {
        ASSERT_EQ(transmit(counting(5)), 1);
        EXPECT_EQ(sent.back()[0], 0x80 | (message % 8) << 4);
    }
}

TEST_F(Transmit, LogsEachAttempt)
{
    LogFacade::setLevel("BTP_CORE", LogLevel::Debug);
    const testsupport::StdoutCapture output;
    accept = [] { return sent.size() > 1; };
    ASSERT_EQ(transmit({0x0A, 0xFF}), 1);
    LogFacade::setLevel("BTP_CORE", LogLevel::Notic);
    const std::vector<std::string> expected = {
        "<DEBUG> [BTP_CORE] BTP -> GBS : Number of bytes to transmit : 2 bytes",
        "<DEBUG> [BTP_CORE] BTP -> GBS : Frame number : 0 Frag number : 0 Length 2",
        "<DEBUG> [BTP_CORE] BTP->GBS Data: { 0x80, 0x0A, 0xFF }",
        "<DEBUG> [BTP_CORE] BTP->GBS First attempt",
        "<DEBUG> [BTP_CORE] BTP->GBS Second attempt",
        "<DEBUG> [BTP_CORE] BTP -> GBS Transmit : 2 bytes OK",
    };
    EXPECT_EQ(output.logLines(), expected);
}

TEST_F(Transmit, RefusesToWriteMoreThanFourFrames)
{
    EXPECT_EQ(BTP_IO_Write(counting(4481).data(), 4481), -2);
    EXPECT_TRUE(sent.empty());
}
}  // namespace
