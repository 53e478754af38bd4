#pragma once

#include <QDBusAbstractAdaptor>
#include <QString>

/// The interface "brisca.service" on the bus. Holds no logic: each method calls the slot of the same name of
/// the parent object, directly and to its end, and the parent's signals are relayed to the bus. Main thread
/// only.
class ServiceAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "brisca.service")
    // clang-format off
    Q_CLASSINFO("D-Bus Introspection",
                "  <interface name=\"brisca.service\">\n"
                "    <signal name=\"fwUpdateComplete\">\n"
                "      <arg direction=\"out\" type=\"b\" name=\"isSuccess\"/>\n"
                "    </signal>\n"
                "    <signal name=\"communicationError\"/>\n"
                "    <signal name=\"btDeviceConnected\"/>\n"
                "    <signal name=\"btDeviceDisconnected\"/>\n"
                "    <signal name=\"bleIsStarted\"/>\n"
                "    <method name=\"getBriscaState\">\n"
                "      <arg direction=\"out\" type=\"i\"/>\n"
                "    </method>\n"
                "    <method name=\"BriscaRestart\">\n"
                "      <annotation value=\"true\" name=\"org.freedesktop.DBus.Method.NoReply\"/>\n"
                "    </method>\n"
                "    <method name=\"getFirmwareVersion\">\n"
                "      <arg direction=\"out\" type=\"s\"/>\n"
                "    </method>\n"
                "    <method name=\"getMacAddress\">\n"
                "      <arg direction=\"out\" type=\"s\"/>\n"
                "    </method>\n"
                "    <method name=\"changeBleName\">\n"
                "      <arg direction=\"in\" type=\"s\" name=\"bleName\"/>\n"
                "    </method>\n"
                "    <method name=\"startFirmwareUpdate\">\n"
                "      <arg direction=\"out\" type=\"b\"/>\n"
                "      <arg direction=\"in\" type=\"s\" name=\"filename\"/>\n"
                "    </method>\n"
                "    <method name=\"enableBluetooth\">\n"
                "      <annotation value=\"true\" name=\"org.freedesktop.DBus.Method.NoReply\"/>\n"
                "    </method>\n"
                "    <method name=\"disableBluetooth\">\n"
                "      <annotation value=\"true\" name=\"org.freedesktop.DBus.Method.NoReply\"/>\n"
                "    </method>\n"
                "    <method name=\"startFirmwareApp\">\n"
                "      <annotation value=\"true\" name=\"org.freedesktop.DBus.Method.NoReply\"/>\n"
                "    </method>\n"
                "    <method name=\"disconnectBleDevice\">\n"
                "      <annotation value=\"true\" name=\"org.freedesktop.DBus.Method.NoReply\"/>\n"
                "    </method>\n"
                "  </interface>\n")
    // clang-format on

public:
    /// @param parent the object with the slots and signals; owns the adaptor
    explicit ServiceAdaptor(QObject* parent);

Q_SIGNALS:
    void bleIsStarted();
    void btDeviceConnected();
    void btDeviceDisconnected();
    void communicationError();
    void fwUpdateComplete(bool isSuccess);

public Q_SLOTS:
    void changeBleName(const QString& bleName);
    Q_NOREPLY void disableBluetooth();
    Q_NOREPLY void disconnectBleDevice();
    Q_NOREPLY void BriscaRestart();
    Q_NOREPLY void enableBluetooth();
    QString getFirmwareVersion();
    QString getMacAddress();
    int getBriscaState();
    Q_NOREPLY void startFirmwareApp();
    bool startFirmwareUpdate(const QString& filename);
};
