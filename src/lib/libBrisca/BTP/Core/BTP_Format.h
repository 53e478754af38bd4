#pragma once

#include <cstddef>
#include <cstdint>

// The BTP fragment on the air: one GATT write of the phone, or one notification to it.
//
//   offset  size     field
//   0       1        header
//   1       1 to 69  payload
//
//   header bit  field            meaning
//   7           first fragment   1 on the first fragment sent of a frame
//   6 to 4      frame number     0 to 7; the sender counts frames, the receiver looks at bits 5 and 4 only
//   3 to 0      fragment number  counts down to 0; the first fragment carries (count - 1) modulo 16
//
// A message is cut into frames of 1120 bytes, the last one taking the rest, and a frame into fragments of 69
// bytes, the first one sent taking the rest.

constexpr unsigned kBtpFragmentPayload = 69;
constexpr unsigned kBtpHeaderLength = 1;
/// Longest fragment on the air.
constexpr unsigned kBtpFragmentLength = kBtpHeaderLength + kBtpFragmentPayload;
/// A full frame takes 17 fragments, one more than the fragment number counts and the receiver holds: its
/// first fragment carries number 0.
constexpr unsigned kBtpFrameLength = 1120;
/// Longest message: four full frames.
constexpr unsigned kBtpMessageLength = 4480;

constexpr unsigned kBtpSlots = 4;
constexpr unsigned kBtpFragmentsPerSlot = 16;
/// Payload bytes that one reassembly slot holds.
constexpr unsigned kBtpSlotCapacity = kBtpFragmentsPerSlot * kBtpFragmentPayload;

constexpr std::uint8_t kBtpFirstFragment = 0x80;
constexpr unsigned kBtpFrameNumbers = 8;

/// Handle of the characteristic that carries BTP in both directions.
constexpr std::uint16_t kBtpCharacteristic = 26;

constexpr std::uint8_t btpHeader(bool first, unsigned frameNumber, unsigned fragmentNumber)
{
    return static_cast<std::uint8_t>((first ? kBtpFirstFragment : 0) | ((frameNumber & 7U) << 4U) |
                                     (fragmentNumber & 15U));
}

constexpr bool btpIsFirst(std::uint8_t header)
{
    return (header & kBtpFirstFragment) != 0;
}

/// The reassembly slot of a received fragment: bits 5 and 4, so frame numbers 4 to 7 share the slots of 0
/// to 3.
constexpr unsigned btpSlot(std::uint8_t header)
{
    return (header >> 4U) & 3U;
}

constexpr unsigned btpFragmentNumber(std::uint8_t header)
{
    return header & 15U;
}
