#include "BluetoothManager.h"

#include "facade/Log.h"

BRISCA_LOG_NODE(logNode, "BriscaService.comm.BluetoothManager");

BluetoothManager::BluetoothManager()
    : m_bleName(QStringLiteral("Voltra")), m_manufacturerData{0x4CF4, 0x0100}
{
}

BluetoothManager::~BluetoothManager() = default;

BluetoothManager& BluetoothManager::instance()
{
    static BluetoothManager singleton;
    return singleton;
}

void BluetoothManager::setUartName(const char* name)
{
    m_uartName = QString::fromLatin1(name);
}

void BluetoothManager::setBleName(const QString& name)
{
    BRISCA_DEBUG(logNode, "BLE name changed from %s to %s.", m_bleName.toUtf8().constData(),
                 name.toUtf8().constData());
    m_bleName = name;
}
