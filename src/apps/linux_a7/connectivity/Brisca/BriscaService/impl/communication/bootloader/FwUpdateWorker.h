#pragma once

#include "ImageFile.h"

#include <QObject>
#include <QString>

#include <memory>

class SerialPort;
struct UploadProgress;

/// One upload of a firmware image, run on a thread of its own.
class FwUpdateWorker : public QObject
{
    Q_OBJECT

public:
    /// @param filePath         image file
    /// @param port             open port whose line is this worker's alone until finished(); must outlive it
    /// @param image            the file, when it is open already
    /// @param progress         told how far the upload is; must outlive the worker
    /// @param cancelDescriptor becomes readable to end the upload from another thread; -1 for none
    FwUpdateWorker(const QString& filePath, SerialPort& port, QObject* parent,
                   std::unique_ptr<ImageFile> image, UploadProgress& progress, int cancelDescriptor);

Q_SIGNALS:
    /// The worker has done its work and touches the port no more.
    void finished();
    /// Outcome of the upload; emitted exactly once, before finished().
    void fwCompleteStatus(bool success);
    /// Never emitted; the client logs it.
    void error(QString text);

public Q_SLOTS:
    /// Sends the image; returns when the upload has ended. A receiver that still waits for more has then been
    /// told to end, within 10 s.
    void process();

private:
    [[nodiscard]] bool upload();
    [[nodiscard]] int send(int descriptor);
    void cancelReceiver(int descriptor);

    SerialPort& m_port;
    QString m_filePath;
    std::unique_ptr<ImageFile> m_image;
    UploadProgress& m_progress;
    int m_cancelDescriptor;
};
