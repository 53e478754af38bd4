#include "ClientFixture.h"
#include "efr32sim/Chip.h"

#include <termios.h>
#include <QTimer>

namespace {
using efr32sim::EventKind;

constexpr std::size_t kPacketLength = 133;

std::size_t threadCount()
{
    // ThreadSanitizer adds a thread of its own with the first one of the program; and a thread that has been
    // joined is listed for another moment.
    [[maybe_unused]] static const bool warm = [] {
        pid_t first = 0;
        std::thread([&] { first = gettid(); }).join();
        return waitUntil(
            [&] { return ::access(("/proc/self/task/" + std::to_string(first)).c_str(), F_OK) != 0; });
    }();
    return entriesOf("/proc/self/task");
}

class Upload : public ClientFixture
{
protected:
    void follow(An760& client)
    {
        QObject::connect(&client, &An760::fwUpdateCompleteStatus, &client, [this](bool success) {
            EXPECT_EQ(QThread::currentThread(), application.thread());
            reports.push_back(success);
        });
    }
    /// Runs the event loop until so many reports have come.
    [[nodiscard]] bool waitForReports(std::size_t count) const
    {
        return waitUntil([&] {
            QCoreApplication::processEvents();
            return reports.size() >= count;
        });
    }
    /// Runs the event loop until only so many threads are left.
    [[nodiscard]] static bool threadsEndAt(std::size_t count)
    {
        return waitUntil([&] {
            QCoreApplication::processEvents();
            QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
            return threadCount() == count;
        });
    }
    [[nodiscard]] QString imageFile(const std::string& fileName, std::size_t size)
    {
        const std::string content = testsupport::content(size);
        image.assign(content.begin(), content.end());
        image.resize((size + 127) / 128 * 128, 0xFF);
        return QString::fromUtf8(directory.write(fileName, content).c_str());
    }

    efr32sim::Bytes image;  // content of the last imageFile(), filled up to whole blocks
    std::vector<bool> reports;
};

/// Uploads to the simulated chip.
class ChipUpload : public Upload
{
protected:
    ChipUpload()
    {
        chip.start();
        EXPECT_TRUE(client.open());
        follow(client);
    }

    efr32sim::Chip chip{{.ttyPath = directory.file("tty"), .resetPath = {}}};
    An760 client{directory.file("tty").c_str()};
};

TEST_F(ChipUpload, DeliversTheImageWhileTheEventLoopServesOthers)
{
    const std::size_t threads = threadCount();
    const std::size_t descriptors = entriesOf("/proc/self/fd");
    auto events = chip.follow();
    int served = 0;
    QTimer others;
    QObject::connect(&others, &QTimer::timeout, [&] { served += reports.empty() ? 1 : 0; });
    others.start(0);
    client.updateFirmware(imageFile("image-\xC3\xBC.gbl", 50'000));
    EXPECT_THAT(reports, IsEmpty()) << "reported before the event loop ran";
    EXPECT_TRUE(client.uploadSilence());
    EXPECT_TRUE(waitForReports(1));
    EXPECT_GT(served, 0);
    EXPECT_THAT(reports, ElementsAre(true));
    EXPECT_TRUE(events.waitFor(EventKind::Prompt));
    EXPECT_TRUE(chip.image() == image);
    EXPECT_FALSE(client.uploadSilence());
    EXPECT_EQ(client.uploadProgress().acknowledgedBytes, 50'000);
    EXPECT_EQ(client.uploadProgress().fileBytes, 50'000);
    EXPECT_TRUE(threadsEndAt(threads));
    EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);

    QString version;
    EXPECT_TRUE(client.getFirmwareVersion(version)) << "the console was not given back";
}

TEST_F(ChipUpload, ASuccessThatIsStillQueuedIsReportedByTheClose)
{
    auto events = chip.follow();
    client.updateFirmware(imageFile("image", 2000));
    EXPECT_TRUE(events.waitFor(EventKind::UploadComplete));
    EXPECT_THAT(reports, IsEmpty());
    client.close();
    EXPECT_THAT(reports, ElementsAre(true));
    QCoreApplication::processEvents();
    EXPECT_EQ(reports.size(), 1U) << "reported again";
}

/// Uploads to a receiver that the test plays.
class StuckUpload : public Upload
{
protected:
    StuckUpload()
    {
        EXPECT_TRUE(client->open());
        follow(*client);
    }
    void begin()
    {
        client->updateFirmware(path);
        EXPECT_EQ(line.read(1), "1");
    }

    Pty line;
    std::unique_ptr<An760> client = std::make_unique<An760>(line.slavePath().c_str());
    const QString path = imageFile("image", 2000);
};

TEST_F(StuckUpload, LeavesTheLineToTheWorkerAlone)
{
    begin();
    EXPECT_FALSE(client->open());
    expectRefusals(*client);
    EXPECT_EQ(line.readAvailable(), "");
    EXPECT_THAT(reports, IsEmpty());
}

TEST_F(StuckUpload, IsEndedByTheCloseInEveryWait)
{
    LogFacade::setLevel("BriscaService.comm.xmodem", LogLevel::Debug);
    const std::size_t threads = threadCount();
    const std::size_t descriptors = entriesOf("/proc/self/fd");
    for (const auto& [name, blocks, answer, stopped] : Rows<int, std::string, bool>{
             {"a receiver that never asks", 0, "", false},
             {"a receiver that does not answer", 1, "", false},
             {"a receiver that refuses for ever", 100, "\x15", false},
             {"a receiver that does not end when it is cancelled", 56, "!", false},
             {"a stopped line", 1, "", true},
         }) {
        SCOPED_TRACE(name);
        log.clear();
        begin();
        ASSERT_EQ(::tcflow(line.slave(), stopped ? TCOOFF : TCOON), 0);
        line.write(blocks > 0 ? "C" : "");
        for (int block = 0; block < blocks && !stopped; ++block) {
            EXPECT_EQ(line.read(kPacketLength).size(), kPacketLength);
            line.write(answer);
        }
        EXPECT_EQ(line.read(answer == "!" ? 2 : 0), answer == "!" ? "\x18\x18" : "");
        // The first block can only wait for a line that has stopped.
        EXPECT_TRUE(!stopped || waitUntil([&] { return log.contains("Sending "); }));
        reports.clear();
        client->close();
        EXPECT_THAT(reports, ElementsAre(false));
        EXPECT_EQ(log.count("EFR32 Fw update finished: failed"), 1);
        EXPECT_FALSE(log.contains("<ERROR>"));
        EXPECT_TRUE(threadsEndAt(threads));
        EXPECT_EQ(reports.size(), 1U) << "reported again";

        ::tcflow(line.slave(), TCOON);
        (void)line.readAvailable();
        EXPECT_TRUE(client->open()) << "a restart must work";
        EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
    }
}

TEST_F(StuckUpload, CancelsOnceWhereTheConsoleComesBack)
{
    begin();
    line.write("C");
    for (int block = 1; block <= 56; ++block) {
        EXPECT_EQ(line.read(kPacketLength).size(), kPacketLength);
        line.write(block < 56 ? "!" : "!BL >");
    }
    EXPECT_TRUE(waitForReports(1));
    EXPECT_EQ(line.read(2), "\x18\x18");
    EXPECT_EQ(line.readAvailable(), "");
}

TEST_F(StuckUpload, TheReportComesBeforeThePortIsClosedAndCannotStartAnother)
{
    bool reported = false;
    QObject::connect(client.get(), &An760::fwUpdateCompleteStatus, client.get(), [&] {
        EXPECT_FALSE(client->open()) << "closed before the report";
        client->updateFirmware(path);
        reported = true;
    });
    begin();
    client->close();
    EXPECT_TRUE(reported);
    EXPECT_EQ(log.count("Error during the upload of a new firmware version."), 1);
    EXPECT_EQ(line.readAvailable(), "");
}

TEST_F(StuckUpload, IsEndedByTheClientsDestruction)
{
    const std::size_t threads = threadCount();
    begin();
    client.reset();
    EXPECT_EQ(line.readAvailable(), "");
    EXPECT_TRUE(threadsEndAt(threads));
    EXPECT_THAT(reports, IsEmpty());
}
}  // namespace
