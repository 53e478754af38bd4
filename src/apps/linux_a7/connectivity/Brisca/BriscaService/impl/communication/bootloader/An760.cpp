#include "An760.h"

#include "CancelEvent.h"
#include "ConsolePrompt.h"
#include "FwUpdateWorker.h"
#include "facade/Log.h"

#include <QCoreApplication>
#include <QVector>

#include <algorithm>
#include <cerrno>

BRISCA_LOG_NODE(logNode, "BriscaService.comm.An760");

namespace {
constexpr char kWakeConsole = '\r';
constexpr char kStartUpload = '1';
constexpr char kRunFirmware = '2';
constexpr char kPrintInformation = '3';
constexpr std::size_t kMaxConsoleText = std::size_t{64} * 1024;

void keepNewest(std::vector<char>& text)
{
    if (text.size() > kMaxConsoleText)
        text.erase(text.begin(), text.end() - kMaxConsoleText);
}

// Lets the text grow to twice its bound before the oldest half goes, so that a chip that babbles without end
// costs one move a byte.
void append(std::vector<char>& text, char byte)
{
    text.push_back(byte);
    if (text.size() == 2 * kMaxConsoleText)
        keepNewest(text);
}

// Without NUL and the noncharacters of Unicode, which no D-Bus string may hold: the first ends it, for the
// others a client's library may throw the whole reply away.
QString toText(const std::vector<char>& bytes)
{
    QVector<uint> text = QString::fromUtf8(bytes.data(), static_cast<int>(bytes.size())).toUcs4();
    const auto unfit = [](uint character) { return character == 0 || QChar::isNonCharacter(character); };
    text.erase(std::remove_if(text.begin(), text.end(), unfit), text.end());
    return QString::fromUcs4(text.constData(), text.size());
}
}  // namespace

An760::An760(const char* port)
    : m_port(QString::fromUtf8(port), BaudRate::Baud230400, CharacterSize::Cs8, StopBits::One, Parity::None)
{
}

An760::~An760()
{
    joinWorker();
}

bool An760::open()
{
    if (m_port.isOpen()) {
        BRISCA_WARN(logNode, "Serial port is already opened.");
        return false;
    }
    return m_port.openDevice();
}

void An760::close()
{
    if (m_lineUser == LineUser::Upload)
        endUpload();
    m_port.closeDevice();
    m_lineUser = LineUser::Console;
}

// The worker's report waits in this thread's event queue, whether the upload was cut short or had just come
// to its own end. Delivering it here makes it the only report, and a true one.
void An760::endUpload()
{
    m_lineUser = LineUser::Nobody;  // a receiver of the report must not start what the close would pull away
    joinWorker();
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
}

bool An760::consoleUsable() const
{
    return m_port.isOpen() && m_lineUser == LineUser::Console;
}

std::optional<std::chrono::milliseconds> An760::uploadSilence() const
{
    if (m_lineUser != LineUser::Upload)
        return std::nullopt;
    return m_progress.silence();
}

bool An760::send(const char& c)
{
    if (!consoleUsable())
        return false;
    m_port.discardBufferedData();
    return m_port.write(c);
}

bool An760::sendCarriageReturn()
{
    return send(kWakeConsole);
}

bool An760::startFirmware()
{
    if (!send(kRunFirmware)) {
        BRISCA_ERROR(logNode, "Error during the commend to start the firmware is send");
        return false;
    }
    BRISCA_DEBUG(logNode, "Start firmware success.");
    return true;
}

bool An760::getFirmwareVersion(QString& version)
{
    version = QString();
    std::vector<char> text;
    if (!send(kPrintInformation) || !waitCommandPrompt(text)) {
        BRISCA_ERROR(logNode, "Error during the reading of firmware version.");
        return false;
    }
    version = toText(text);
    BRISCA_DEBUG(logNode, "EFR32 version: %s", version.toUtf8().constData());
    return true;
}

bool An760::waitCommandPrompt(std::vector<char>& received)
{
    const bool found = m_lineUser == LineUser::Console && readUntilPrompt(received);
    keepNewest(received);
    BRISCA_DEBUG(logNode, "%d char read on serial port.", static_cast<int>(received.size()));
    if (found)
        BRISCA_DEBUG(logNode, "Bootloader prompt found.");
    else
        BRISCA_WARN(logNode, "Bootloader prompt not found.");
    return found;
}

bool An760::readUntilPrompt(std::vector<char>& received)
{
    std::size_t matched = 0;
    char byte = 0;
    while (matched < kConsolePrompt.size()) {
        if (!m_port.read(byte))
            return false;
        BRISCA_TRACE(logNode, "Received: %c", byte);
        append(received, byte);
        // A byte that breaks the match does not start a new one: "BBL >" is no prompt of this bootloader.
        matched = byte == kConsolePrompt[matched] ? matched + 1 : 0;
    }
    return true;
}

void An760::updateFirmware(const QString& filePath)
{
    uploadImage(filePath, std::make_unique<ImageFile>());
}

void An760::uploadImage(const QString& filePath, std::unique_ptr<ImageFile> image)
{
    auto cancel = std::make_unique<CancelEvent>();
    if (!cancel->isValid() || !send(kStartUpload)) {
        BRISCA_ERROR(logNode, "Error during the upload of a new firmware version.");
        return;
    }
    BRISCA_DEBUG(logNode, "Start firmware update");
    m_cancel = std::move(cancel);
    startUpload(filePath, std::move(image));
    // The upload has only begun; the wording is part of the log's interface.
    BRISCA_DEBUG(logNode, "New version of firmware is correctly uploaded");
}

void An760::startUpload(const QString& filePath, std::unique_ptr<ImageFile> image)
{
    m_progress.begin(image->size());
    m_lineUser = LineUser::Upload;
    m_thread = new QThread;
    auto* const worker =
        new FwUpdateWorker(filePath, m_port, nullptr, std::move(image), m_progress, m_cancel->descriptor());
    worker->moveToThread(m_thread);
    connect(worker, &FwUpdateWorker::error, this, &An760::errorString);
    connect(worker, &FwUpdateWorker::fwCompleteStatus, this, &An760::onFwCompleteStatus);
    connect(m_thread, &QThread::started, worker, &FwUpdateWorker::process);
    connect(worker, &FwUpdateWorker::finished, m_thread, &QThread::quit);
    connect(worker, &FwUpdateWorker::finished, worker, &FwUpdateWorker::deleteLater);
    connect(m_thread, &QThread::finished, m_thread, &QThread::deleteLater);
    m_thread->start();
    if (!m_thread->isRunning()) {  // the system has no thread to give
        delete worker;
        m_progress.result = -EAGAIN;
        onFwCompleteStatus(false);
    }
}

// The worker has no wait that the raised flag does not end, and it asks this thread for nothing: its thread's
// own quit() would come through the event loop, which does not run here.
void An760::joinWorker()
{
    if (m_cancel)
        m_cancel->raise();
    if (m_thread) {
        m_thread->quit();
        m_thread->wait();
        delete m_thread;  // its deleteLater() would need an event loop, which an ending service has no more
    }
    m_cancel.reset();
}

void An760::onFwCompleteStatus(bool success)
{
    joinWorker();
    if (m_lineUser == LineUser::Upload)
        m_lineUser = LineUser::Console;
    BRISCA_DEBUG(logNode, "EFR32 Fw update finished: %s", success ? "success" : "failed");
    Q_EMIT fwUpdateCompleteStatus(success);
}

void An760::errorString(const QString& text)
{
    BRISCA_ERROR(logNode, "Error: %s", text.toUtf8().constData());
}
