#include "BridgePipes.h"
#include "GBSSlave.h"
#include "NCP_Manager.h"
#include "Testing.h"
#include "facade/LogFacade.h"

#include <sys/stat.h>

namespace {
using Status = PipeFrameReader::Status;

class BridgePipesTest : public testing::Test
{
protected:
    BridgePipesTest() { LogFacade::setLevel("Brisca", LogLevel::Debug); }

    /// Makes the pipes; a phone is there.
    bool create()
    {
        const bool created = pipes.create(tx.c_str(), rx.c_str());
        pipes.follow(GBSSlave_GetLinkNumber(), true);
        return created;
    }
    static UniqueFd openEnd(const std::string& path)
    {
        return UniqueFd(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    }
    static void put(const UniqueFd& end, const std::string& bytes)
    {
        ASSERT_EQ(::write(end.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    static std::string take(const UniqueFd& end)
    {
        std::string bytes(100'000, '\0');
        const ssize_t count = ::read(end.get(), bytes.data(), bytes.size());
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return bytes;
    }
    /// What the phone is to get of the frame that was received last.
    std::string received()
    {
        const auto message = pipes.received().message();
        return {message.begin(), message.end()};
    }
    static mode_t modeOf(const std::string& path)
    {
        struct stat status = {};
        ::lstat(path.c_str(), &status);
        return status.st_mode & 07777;
    }

    TempDir directory;
    const std::string tx = directory.file("tx");
    const std::string rx = directory.file("rx");
    StdoutCapture capture;
    BridgePipes pipes;
};

TEST_F(BridgePipesTest, ANewPipeIsOpenToEverybodyWhateverTheUmaskAndOneThatExistsIsUsedAsItIs)
{
    ASSERT_EQ(::mkfifo(tx.c_str(), 0600), 0);
    const mode_t before = ::umask(077);
    const bool created = create();
    ::umask(before);
    ASSERT_TRUE(created);
    EXPECT_EQ(modeOf(tx), 0600U) << "the choice of whoever made it";
    EXPECT_EQ(modeOf(rx), 0666U);
    EXPECT_EQ(capture.count("<INFO > [Brisca] Device Tx Already exist"), 1);
}

TEST_F(BridgePipesTest, AnythingButAPipeIsRefusedWithOneLine)
{
    const std::string real = directory.file("real");
    ASSERT_EQ(::mkfifo(real.c_str(), 0666), 0);
    const std::pair<const char*, std::function<void(const std::string&)>> cases[] = {
        {"regular file",
         [](const std::string& path) { UniqueFd(::open(path.c_str(), O_CREAT | O_RDWR, 0666)); }},
        {"directory", [](const std::string& path) { std::filesystem::create_directory(path); }},
        {"link to a pipe", [&](const std::string& path) { std::filesystem::create_symlink(real, path); }},
        {"dangling link", [](const std::string& path) { std::filesystem::create_symlink("/nowhere", path); }},
    };
    for (const std::string& path : {tx, rx}) {
        for (const auto& [name, make] : cases) {
            SCOPED_TRACE(name);
            make(path);
            capture.clear();
            const std::size_t before = entriesOf("/proc/self/fd");
            BridgePipes fresh;
            EXPECT_FALSE(fresh.create(tx.c_str(), rx.c_str()));
            EXPECT_EQ(capture.count("<ERROR> [Brisca] " + path + " cannot be used as a named pipe"), 1);
            EXPECT_LE(entriesOf("/proc/self/fd"), before + (path == rx ? 1 : 0));
            std::filesystem::remove_all(tx);
            std::filesystem::remove_all(rx);
        }
    }
}

TEST_F(BridgePipesTest, DescriptorsAreKeptOverAnyNumberOfStartsAndARemovedPipe)
{
    ASSERT_TRUE(create());
    const std::size_t before = entriesOf("/proc/self/fd");
    for (int round = 0; round < 10; ++round)
        ASSERT_TRUE(create());
    EXPECT_EQ(capture.count("Open Tx pipe"), 1);
    ASSERT_TRUE(std::filesystem::remove(tx));
    ASSERT_TRUE(create());
    EXPECT_EQ(entriesOf("/proc/self/fd"), before);
    put(openEnd(tx), "\0\0\0\1x"s);
    EXPECT_EQ(pipes.receive(), Status::Frame);
}

TEST_F(BridgePipesTest, AnswersAreTakenOutOfTheStreamAFrameAPoll)
{
    ASSERT_TRUE(create());
    const UniqueFd application = openEnd(tx);
    for (const auto& [name, written, statuses, message] : Rows<std::string, std::vector<Status>, std::string>{
             {"the first two bytes are ignored", "\xFF\x80\0\5hello"s, {Status::Frame}, "\0\5hello"s},
             {"length 0", "\0\0\0\0"s, {Status::InvalidLength}, ""},
             {"behind an invalid length comes a header",
              "\0\0\xFF\xFF\7\7\0\2hi"s,
              {Status::InvalidLength, Status::Frame},
              "\0\2hi"s},
             {"a header without payload is dropped", "\0\0\0\5"s, {Status::PayloadMissing}, ""},
             {"a short payload keeps its announced length", "\0\0\0\5hi"s, {Status::Frame}, "\0\5hi"s},
             {"two frames", "\0\0\0\1x\0\0\0\1y"s, {Status::Frame, Status::Frame}, "\0\1y"s},
         }) {
        SCOPED_TRACE(name);
        put(application, written);
        for (const Status expected : statuses)
            EXPECT_EQ(pipes.receive(), expected);
        if (!message.empty()) {
            EXPECT_EQ(received(), message);
        }
        EXPECT_EQ(pipes.receive(), Status::Nothing);
    }
    const std::string frame = "\1\2\0\3abc"s;
    for (std::size_t cut = 1; cut < kAnswerHeaderSize; ++cut) {
        SCOPED_TRACE(cut);
        put(application, frame.substr(0, cut));
        EXPECT_EQ(pipes.receive(), Status::Nothing);
        EXPECT_EQ(pipes.receive(), Status::Nothing) << "an empty read keeps what came";
        put(application, frame.substr(cut));
        EXPECT_EQ(pipes.receive(), Status::Frame);
        EXPECT_EQ(received(), "\0\3abc"s);
        EXPECT_EQ(pipes.received().header()[1], 2);
    }
}

TEST_F(BridgePipesTest, AnswersToAPhoneThatHasGoneAreDroppedWhole)
{
    ASSERT_TRUE(create());
    const UniqueFd application = openEnd(tx);
    const auto drops = [this](const Status last) {
        int count = 0;
        Status status = Status::Dropped;
        while ((status = pipes.receive()) == Status::Dropped)
            ++count;
        EXPECT_EQ(status, last);
        return count;
    };
    const auto endLink = [] {
        NCPManager_EndLink();
        return GBSSlave_GetLinkNumber();
    };
    std::uint32_t link = 0;
    for (const auto& [name, before, after, count] : Rows<std::string, std::string, int>{
             {"whole answers", "\0\0\0\1x\0\0\0\1y"s, ""s, 2},
             {"half a header", "\0\0\0"s, "\2xx"s, 1},
             {"a header", "\0\0\0\2"s, "xx"s, 1},
             {"half a payload", "\0\0\0\5he"s, "llo"s, 1},
         }) {
        for (const bool next : {true, false}) {  // whether the next phone comes at once
            SCOPED_TRACE(name + (next ? ", next"s : ""s));
            if (next && before.size() < kAnswerHeaderSize) {
                put(application, "\0"s);
                EXPECT_EQ(pipes.receive(), Status::Nothing);
            }
            put(application, before.substr(next && before.size() < kAnswerHeaderSize ? 1 : 0));
            pipes.follow(link = endLink(), next);
            const int dropped = drops(Status::Nothing);
            put(application, after);
            EXPECT_EQ(dropped + drops(Status::Nothing), count);
            pipes.follow(link, true);
            put(application, "\0\0\0\2hi"s);
            EXPECT_EQ(drops(Status::Frame), 0);
            EXPECT_EQ(received(), "\0\2hi"s);
            EXPECT_EQ(pipes.receivedLink(), link);
        }
    }
    pipes.follow(link = endLink(), false);
    put(application, "\0\0\0\1x"s);
    EXPECT_EQ(drops(Status::Nothing), 1) << "written while no phone is there";

    pipes.follow(link, true);
    put(application, "\0"s);
    EXPECT_EQ(drops(Status::Nothing), 0);
    link = endLink();
    put(application, "\0\0\5he"s);
    EXPECT_EQ(drops(Status::Nothing), 1) << "written before the event task tells of the end";
    pipes.follow(link, true);
    put(application, "llo\0\0\0\2hi"s);
    EXPECT_EQ(drops(Status::Frame), 0);
}

TEST_F(BridgePipesTest, ANewStartForgetsWhatAnApplicationLeftBehind)
{
    ASSERT_TRUE(create());
    const UniqueFd writes = openEnd(tx);
    const UniqueFd reads = openEnd(rx);
    for (const auto& [name, left] : Rows<std::string>{{"half a header", "abc"},
                                                      {"a header without its payload", "\0\0\0\5"s},
                                                      {"a whole answer", "\0\0\0\1x"s}}) {
        SCOPED_TRACE(name);
        put(writes, left.substr(0, 3));
        EXPECT_EQ(pipes.receive(), Status::Nothing);
        if (left.size() > 3)
            put(writes, left.substr(3));
        ASSERT_TRUE(pipes.beginRequest());
        pipes.send(1);
        ASSERT_TRUE(pipes.beginRequest());
        ASSERT_TRUE(create());
        EXPECT_EQ(pipes.send(1).header, -1) << "a request of before is not sent to the new application";
        EXPECT_EQ(take(reads), "");
        put(writes, "\0\0\0\2hi"s);
        ASSERT_EQ(pipes.receive(), Status::Frame);
        EXPECT_EQ(received(), "\0\2hi"s);
    }
    EXPECT_EQ(capture.count("<INFO > [Brisca] Discarded"), 3);
}

TEST_F(BridgePipesTest, AnApplicationThatReadsAgainFindsWholeRequestsOnly)
{
    ASSERT_TRUE(create());
    const UniqueFd application = openEnd(rx);
    const std::size_t length = 4416;
    std::iota(pipes.payload().begin(), pipes.payload().begin() + length, std::uint8_t{0});
    std::size_t accepted = 0;
    while (pipes.beginRequest() && pipes.send(length).header != -1)
        ++accepted;
    EXPECT_GT(accepted, 5U);

    std::string stream = take(application);
    while (!pipes.beginRequest())
        stream += take(application);
    stream += take(application);
    ASSERT_EQ(stream.size(), accepted * (length + 2));
    for (std::size_t offset = 0; offset < stream.size(); offset += length + 2)
        EXPECT_EQ(stream.substr(offset, 3), "\x40\x11\0"s);
    pipes.payload()[0] = 'x';
    EXPECT_EQ(pipes.send(1).payload, 1) << "there is room again";
}

TEST_F(BridgePipesTest, StartsMayComeWhileTheTasksAreInTheMiddleOfAFrame)
{
    ASSERT_TRUE(create());
    const UniqueFd writes = openEnd(tx);
    std::atomic<bool> stop = false;
    std::thread application([&] {
        const std::string frame = "\0\0\0\3abc"s;
        while (!stop)
            (void)!::write(writes.get(), frame.data(), frame.size());
    });
    std::atomic<int> wrong = 0;
    std::atomic<int> frames = 0;
    std::thread toPhone([&] {
        while (!stop) {
            if (pipes.receive() != Status::Frame)
                continue;
            ++frames;
            const std::string message = received();
            wrong += message.size() == 5 && message.starts_with("\0\3"s) ? 0 : 1;
        }
    });
    std::thread toApplication([&] {
        while (!stop)
            if (pipes.beginRequest())
                pipes.send(4000);
    });
    for (int round = 0; round < 200 || frames < 1000; ++round)
        ASSERT_TRUE(create());
    stop = true;
    for (std::thread* thread : {&application, &toPhone, &toApplication})
        thread->join();
    const UniqueFd reads = openEnd(rx);
    ASSERT_TRUE(create());
    EXPECT_EQ(take(reads), "");
    EXPECT_EQ(wrong, 0);
}
}  // namespace
