#include "ServiceAdaptor.h"

#include <QMetaObject>

ServiceAdaptor::ServiceAdaptor(QObject* parent) : QDBusAbstractAdaptor(parent)
{
    setAutoRelaySignals(true);
}

void ServiceAdaptor::changeBleName(const QString& bleName)
{
    QMetaObject::invokeMethod(parent(), "changeBleName", Qt::AutoConnection, Q_ARG(QString, bleName));
}

void ServiceAdaptor::disableBluetooth()
{
    QMetaObject::invokeMethod(parent(), "disableBluetooth", Qt::AutoConnection);
}

void ServiceAdaptor::disconnectBleDevice()
{
    QMetaObject::invokeMethod(parent(), "disconnectBleDevice", Qt::AutoConnection);
}

void ServiceAdaptor::BriscaRestart()
{
    QMetaObject::invokeMethod(parent(), "BriscaRestart", Qt::AutoConnection);
}

void ServiceAdaptor::enableBluetooth()
{
    QMetaObject::invokeMethod(parent(), "enableBluetooth", Qt::AutoConnection);
}

QString ServiceAdaptor::getFirmwareVersion()
{
    QString version;
    QMetaObject::invokeMethod(parent(), "getFirmwareVersion", Qt::AutoConnection,
                              Q_RETURN_ARG(QString, version));
    return version;
}

QString ServiceAdaptor::getMacAddress()
{
    QString address;
    QMetaObject::invokeMethod(parent(), "getMacAddress", Qt::AutoConnection, Q_RETURN_ARG(QString, address));
    return address;
}

int ServiceAdaptor::getBriscaState()
{
    int state = 0;
    QMetaObject::invokeMethod(parent(), "getBriscaState", Qt::AutoConnection, Q_RETURN_ARG(int, state));
    return state;
}

void ServiceAdaptor::startFirmwareApp()
{
    QMetaObject::invokeMethod(parent(), "startFirmwareApp", Qt::AutoConnection);
}

bool ServiceAdaptor::startFirmwareUpdate(const QString& filename)
{
    bool started = false;
    QMetaObject::invokeMethod(parent(), "startFirmwareUpdate", Qt::AutoConnection,
                              Q_RETURN_ARG(bool, started), Q_ARG(QString, filename));
    return started;
}
