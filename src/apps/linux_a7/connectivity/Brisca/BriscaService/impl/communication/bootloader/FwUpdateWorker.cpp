#include "FwUpdateWorker.h"

#include "ConsolePrompt.h"
#include "SerialPort.h"
#include "facade/Log.h"
#include "xymodem.h"

#include <cerrno>
#include <cstring>
#include <string>

BRISCA_LOG_NODE(logNode, "BriscaService.FwUpdateWorker");

FwUpdateWorker::FwUpdateWorker(const QString& filePath, SerialPort& port, QObject* parent,
                               std::unique_ptr<ImageFile> image, UploadProgress& progress,
                               int cancelDescriptor)
    : QObject(parent),
      m_port(port),
      m_filePath(filePath),
      m_image(std::move(image)),
      m_progress(progress),
      m_cancelDescriptor(cancelDescriptor)
{
}

void FwUpdateWorker::process()
{
    Q_EMIT fwCompleteStatus(upload());
    Q_EMIT finished();
}

bool FwUpdateWorker::upload()
{
    const int descriptor = m_port.descriptor();
    if (descriptor < 0) {
        BRISCA_ERROR(logNode, "Error during opening of Xmodem communication: %s(%d)", std::strerror(errno),
                     errno);
        return false;
    }
    const int result = send(descriptor);
    m_progress.result = result;
    if (result < 0 && result != -ECANCELED)  // who cancels the upload resets the chip
        cancelReceiver(descriptor);
    return result >= 0;
}

int FwUpdateWorker::send(int descriptor)
{
    return xymodem_send(descriptor, m_filePath.toUtf8().constData(), true, *m_image, m_progress,
                        m_cancelDescriptor);
}

// The console takes no key before its receiver has ended, and a receiver that hears noise between blocks
// hears nothing else until the line has been quiet for a second. A raised cancellation ends each attempt at
// once.
void FwUpdateWorker::cancelReceiver(int descriptor)
{
    for (const int quietMs : {300, 1500, 1500}) {
        std::string said;
        if (xymodem_cancel(descriptor, said, quietMs, m_progress, m_cancelDescriptor) != 0 ||
            said.find(kConsolePrompt) != std::string::npos)
            return;
    }
}
