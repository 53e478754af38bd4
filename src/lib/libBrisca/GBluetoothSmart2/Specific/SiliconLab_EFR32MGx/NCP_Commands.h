#pragma once

// The commands of the co-processor, by the names of its command set.

#include <cstdint>

namespace ncp {
struct Command
{
    std::uint8_t classId;
    std::uint8_t id;
};

constexpr Command kSystemHello{0x01, 0x00};
constexpr Command kSystemReset{0x01, 0x01};
constexpr Command kSystemGetBtAddress{0x01, 0x03};
constexpr Command kSystemSetTxPower{0x01, 0x0A};
constexpr Command kSystemHalt{0x01, 0x0C};

constexpr Command kLeGapEndProcedure{0x03, 0x03};
constexpr Command kLeGapBt5SetAdvData{0x03, 0x0C};
constexpr Command kLeGapSetAdvertiseTiming{0x03, 0x0E};
constexpr Command kLeGapSetAdvertiseChannelMap{0x03, 0x0F};
constexpr Command kLeGapStartAdvertising{0x03, 0x14};
constexpr Command kLeGapStopAdvertising{0x03, 0x15};
constexpr Command kLeGapSetConnTimingParameters{0x03, 0x22};

constexpr Command kLeConnectionGetRssi{0x08, 0x01};
constexpr Command kLeConnectionClose{0x08, 0x04};

constexpr Command kGattSetCharacteristicNotification{0x09, 0x05};

constexpr Command kGattServerReadAttributeValue{0x0A, 0x00};
constexpr Command kGattServerReadAttributeType{0x0A, 0x01};
constexpr Command kGattServerWriteAttributeValue{0x0A, 0x02};
constexpr Command kGattServerSendUserReadResponse{0x0A, 0x03};
constexpr Command kGattServerSendUserWriteResponse{0x0A, 0x04};
constexpr Command kGattServerSendCharacteristicNotification{0x0A, 0x05};
constexpr Command kGattServerFindAttribute{0x0A, 0x06};

constexpr Command kTestDtmTx{0x0E, 0x00};
constexpr Command kTestDtmRx{0x0E, 0x01};
constexpr Command kTestDtmEnd{0x0E, 0x02};

constexpr Command kSmSetBondableMode{0x0F, 0x00};
constexpr Command kSmConfigure{0x0F, 0x01};
constexpr Command kSmStoreBondingConfiguration{0x0F, 0x02};
constexpr Command kSmIncreaseSecurity{0x0F, 0x04};
constexpr Command kSmDeleteBonding{0x0F, 0x06};
constexpr Command kSmDeleteBondings{0x0F, 0x07};
constexpr Command kSmEnterPasskey{0x0F, 0x08};
constexpr Command kSmPasskeyConfirm{0x0F, 0x09};
constexpr Command kSmListAllBondings{0x0F, 0x0B};
constexpr Command kSmBondingConfirm{0x0F, 0x0E};
constexpr Command kSmSetPasskey{0x0F, 0x10};

constexpr Command kUserMessageToTarget{0xFF, 0x00};

// Identifiers of the events that complete a command, in the form of kGbsEventBoot.
constexpr std::uint32_t kEventRssi = 0x030800A0;
constexpr std::uint32_t kEventDtmCompleted = 0x000E00A0;
constexpr std::uint32_t kEventBondsListed = 0x060F00A0;
}  // namespace ncp
