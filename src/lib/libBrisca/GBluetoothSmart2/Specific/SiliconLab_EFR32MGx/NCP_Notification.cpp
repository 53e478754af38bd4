#include "GOS.h"
#include "LineOwner.h"
#include "NCP_Exchange.h"
#include "NCP_Manager.h"
#include "facade/Log.h"
#include "facade/LogTable.h"

#include <optional>

using namespace ncp;

BRISCA_LOG_NODE(logNode, "NCP_MANAGER");

namespace {
constexpr int kAttempts = 15;
constexpr unsigned kAttemptPauseMs = 100;

/// @return the chip's result, or nothing when no response came
std::optional<std::uint16_t> notifyOnce(std::initializer_list<Field> fields)
{
    const Exchange exchange(kGattServerSendCharacteristicNotification, fields);
    return exchange.answered() ? std::optional(exchange.result()) : std::nullopt;
}
}  // namespace

std::uint32_t NCPManager_SendNotification(std::uint8_t connection, std::uint16_t characteristic,
                                          std::uint8_t length, const std::uint8_t* data)
{
    char text[kLogTableSize];
    const int readable = data == nullptr ? 0 : length;
    BRISCA_DEBUG(logNode, "[Send Notification] Length : %d", length);
    BRISCA_DEBUG(logNode, "[Send Notification] NCP->UART Data %s",
                 log_table2str_impl<unsigned char>(data, readable, 0, text, sizeof text, kLogTableHexByte));
    for (int attempt = 1; attempt <= kAttempts; ++attempt) {
        // A length that no packet holds goes unsent through all attempts: part of the interface.
        const auto result = notifyOnce({u8(connection), u16(characteristic), array(length, data)});
        if (result) {
            BRISCA_INFO(logNode, "[Send Notification] Attempt %d : Notification result %d", attempt, *result);
            return *result == 0 ? 1 : 0;
        }
        BRISCA_INFO(logNode, "[Send Notification] Attempt %d : NO response.", attempt);
        if (LineOwner::isLetGo())
            return 0;  // whoever takes the line next waits for the API lock, and must not wait for the rest
        GOS_WaitForDelay(kAttemptPauseMs);
    }
    return 0;
}
