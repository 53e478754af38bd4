// What the station says about itself on the air: name, manufacturer data, address.

#include "Brisca.h"
#include "EventPump.h"
#include "GBSSlave.h"
#include "GOS.h"
#include "facade/Log.h"
#include "facade/LogTable.h"

#include <QByteArray>
#include <algorithm>
#include <array>
#include <cstring>

BRISCA_LOG_NODE(logNode, "Brisca");

namespace {
constexpr std::size_t kNameBufferSize = 64;
constexpr std::uint16_t kMaxNameLength = 31;
static_assert(BRISCA_COMPANY_ID >= 0 && BRISCA_COMPANY_ID <= 0xFFFF, "a company identifier has 16 bits");
constexpr std::uint16_t kCompanyId = BRISCA_COMPANY_ID;

/// CSS part A, 1.3: LE Limited Discoverable Mode, BR/EDR Not Supported.
constexpr std::uint8_t kAdvertisingFlags = 0x05;
constexpr std::uint8_t kDiscoverMode = 4;  // advertise the payloads as they were built here
constexpr unsigned kAdvertisingRetryMs = 20;
constexpr unsigned kRefusalsPerQuestion = 20;  // about a second

tGBS_ManufacturerSpecificData manufacturerRecord(Brisca::ManufacturerData data)
{
    tGBS_ManufacturerSpecificData record = {};
    record.companyId = kCompanyId;
    record.value = data.first;
    // The second value goes through the two single bytes of the record, and so is big-endian.
    record.byte = static_cast<std::uint8_t>(data.second >> 8U);
    record.flags = static_cast<std::uint8_t>(data.second);
    record.length = kBdAddressLength;
    return record;
}
}  // namespace

QString Brisca::GetDeviceName()
{
    const std::lock_guard lock(s_identityLock);
    return m_DeviceName;
}

Brisca::ManufacturerData Brisca::manufacturerData() const
{
    const std::lock_guard lock(s_identityLock);
    return m_manufacturerData;
}

std::uint8_t* Brisca::giveDeviceName(std::uint8_t* length)
{
    static std::array<char, kNameBufferSize> buffer;
    buffer.fill(0);
    const QByteArray name = GetDeviceName().toUtf8();
    std::memcpy(buffer.data(), name.constData(), std::min<std::size_t>(name.size(), buffer.size()));
    if (buffer[0] == '\0' || static_cast<std::uint8_t>(buffer[0]) == 0xFF)
        buffer.fill(0);
    if (length == nullptr)
        return nullptr;
    // StrLenMax counts one character more than its limit.
    *length = static_cast<std::uint8_t>(std::min(StrLenMax(buffer.data(), kMaxNameLength), kMaxNameLength));
    return reinterpret_cast<std::uint8_t*>(buffer.data());
}

QString Brisca::getBLEAddress() const
{
    std::array<std::uint8_t, kBdAddressLength> address = {};
    if (GBSSlave_GetAddress(address.data()) != 1) {
        BRISCA_ERROR(logNode, "Failed to get BLE address");
        return {};
    }
    std::ranges::reverse(address);
    const auto bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(address.data()),
                                               static_cast<int>(address.size()));
    return QString::fromLatin1(bytes.toHex());
}

int Brisca::UpdateManufacturerSpecificData()
{
    GBSSlave_ADTypeResetData(GBS_AD_USAGE_ADVERTISING);
    GBSSlave_ADTypeResetData(GBS_AD_USAGE_SCAN_RESPONSE);
    tGBS_ManufacturerSpecificData record = manufacturerRecord(manufacturerData());
    // An address that cannot be read is advertised as zero.
    if (GBSSlave_GetAddress(record.data) != 1)
        std::fill_n(record.data, kBdAddressLength, std::uint8_t{0});
    char text[kLogTableSize];
    BRISCA_TRACE(logNode, "\nDevice MAC = %s\n",
                 log_table2str_impl(record.data, static_cast<int>(kBdAddressLength), 0, text, sizeof text,
                                    kLogTableHexByte));

    std::uint32_t result = GBSSlave_ADTypeCompleteLocalName(GBS_AD_USAGE_SCAN_RESPONSE);
    BRISCA_TRACE(logNode, "GBSSlave_ADTypeCompleteLocalName = %d", static_cast<int>(result));
    result = GBSSlave_UpdateAdvertisingData(GBS_AD_USAGE_SCAN_RESPONSE);
    BRISCA_TRACE(logNode, "GBSSlave_UpdateAdvertisingData scanning = %d ", static_cast<int>(result));
    result = GBSSlave_ADTypeFlags(GBS_AD_USAGE_ADVERTISING, kAdvertisingFlags);
    BRISCA_TRACE(logNode, "GBSSlave_ADTypeFlags = %d ", static_cast<int>(result));
    result = GBSSlave_AdTypeManufacturerSpecificData(GBS_AD_USAGE_ADVERTISING, &record);
    BRISCA_TRACE(logNode, "GBSSlave_AdTypeManufacturerSpecificData = %d ", static_cast<int>(result));
    result = GBSSlave_UpdateAdvertisingData(GBS_AD_USAGE_ADVERTISING);
    BRISCA_TRACE(logNode, "GBSSlave_UpdateAdvertisingData advertising = %d ", static_cast<int>(result));
    return result == 1 ? 1 : 0;
}

void Brisca::startAdvertising(unsigned short interval)
{
    const std::uint32_t link = GBSSlave_GetLinkNumber();
    if (UpdateManufacturerSpecificData() == 0) {
        BRISCA_ERROR(logNode, "Failed to update manufacturer specific data");
        return;
    }
    // Endless, but for the chip that agrees, the line that is taken away for a reset and a phone that has
    // come meanwhile: a chip of which only the response was lost advertises, and once connected refuses for
    // ever. The event of that connection may be lost too, so now and then the chip is asked.
    for (unsigned refusals = 1;; ++refusals) {
        const std::uint32_t result = GBSSlave_MakeDiscoverable(kDiscoverMode, interval);
        if (result == 1 || !GBSSlave_IsLineHeld() || link != GBSSlave_GetLinkNumber() ||
            GBSSlave_IsConnectionPending())
            return;
        if (refusals % kRefusalsPerQuestion == 0 && GBSSlave_AskForConnection() == GBS_CONNECTION_OPEN)
            return;
        if (result == 0)
            GOS_WaitForDelay(kAdvertisingRetryMs);
        EventPump::noteProgress();
    }
}
