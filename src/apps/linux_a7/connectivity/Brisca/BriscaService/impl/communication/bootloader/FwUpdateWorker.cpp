#include "FwUpdateWorker.h"

#include "SerialPort.h"
#include "facade/Log.h"
#include "xymodem.h"

#include <cerrno>
#include <cstring>

BRISCA_LOG_NODE(logNode, "BriscaService.FwUpdateWorker");

FwUpdateWorker::FwUpdateWorker(const QString& filePath, SerialPort& port, QObject* parent,
                               UploadProgress& progress, int cancelDescriptor)
    : QObject(parent),
      m_port(port),
      m_filePath(filePath),
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
    return xymodem_send(descriptor, m_filePath.toUtf8().constData(), true, m_progress, m_cancelDescriptor) >=
           0;
}
