#pragma once

#include <QString>

class Station;

/// @throw Failure Usage when the name would not be on the air
void checkName(const QString& name);
/// Sets the BLE name; to be called in BOOTLOADER.
void setName(Station& station, const QString& name);
