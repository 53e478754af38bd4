#include "BTP_Core.h"
#include "BTP_Internal.h"
#include "GBSSlave.h"
#include "GOS.h"
#include "facade/Log.h"

#include <algorithm>
#include <array>
#include <cstring>

BRISCA_LOG_NODE(logNode, "BTP_CORE");

namespace {
constexpr unsigned kPollMs = 5;
constexpr unsigned kHistoryLength = 20;
/// The end of a connection frees only the first four of the entries. A frame number that the others remember
/// is not erased by the first fragment of it that the next phone sends, which therefore may overtake the one
/// with the flag.
constexpr unsigned kHistoryFreedByErase = 4;

constexpr std::uint8_t kNone = 0xFF;
constexpr std::uint32_t kNoStamp = 0xFFFFFFFF;
constexpr std::uint32_t kFirstStamp = 1;
constexpr std::uint32_t kLastStamp = 0xFFFFFFFE;

enum class SlotState : std::uint8_t { Empty = 0, Complete = 1, InProgress = 2 };

/// One frame being reassembled. The frame semaphore guards fragmentData, storing and reading; the rest is
/// atomic because the receiver finishes a fragment, and the reader drops a partly read frame, without it.
struct Slot
{
    std::atomic<std::uint32_t> expectedLength;
    std::atomic<std::uint32_t> storedLength;
    std::atomic<SlotState> state;
    std::atomic<std::uint8_t> generation;
    std::array<std::array<std::uint8_t, kBtpFragmentPayload>, kBtpFragmentsPerSlot> fragmentData;
    std::array<std::atomic<std::uint8_t>, kBtpFragmentsPerSlot> fragmentLength;

    [[nodiscard]] unsigned held(unsigned fragment) const
    {
        return fragmentLength[fragment].load(std::memory_order_relaxed);
    }
    void setHeld(unsigned fragment, unsigned length)
    {
        fragmentLength[fragment].store(static_cast<std::uint8_t>(length), std::memory_order_relaxed);
    }
    /// Payloads lie right-aligned in their cells, so that a piece taken from the front moves nothing.
    [[nodiscard]] std::uint8_t* payload(unsigned fragment, unsigned length)
    {
        return fragmentData[fragment].data() + kBtpFragmentPayload - length;
    }
    /// Cannot wrap, although the receiver and the reader's drop may clear the count at any moment.
    void changeStored(unsigned added, unsigned removed)
    {
        const unsigned sum = storedLength + added;
        storedLength = sum > removed ? sum - removed : 0;
    }
    /// The cells keep their bytes: nothing reads a cell whose length is 0.
    void clear()
    {
        state = SlotState::Empty;
        for (unsigned fragment = 0; fragment < kBtpFragmentsPerSlot; ++fragment)
            setHeld(fragment, 0);
        expectedLength = 0;
        storedLength = 0;
        generation = 0;
    }
};

template <class Value, std::size_t size>
struct FilledAtomics : std::array<std::atomic<Value>, size>
{
    explicit FilledAtomics(Value value) { fill(value); }
    void fill(Value value)
    {
        for (auto& entry : *this)
            entry = value;
    }
};

struct ReceiveState
{
    std::array<Slot, kBtpSlots> slots{};
    FilledAtomics<std::uint32_t, kBtpSlots> slotStamp{kNoStamp};
    std::atomic<std::uint32_t> nextStamp{kFirstStamp};
    std::atomic<std::uint8_t> currentReadSlot{kNone};
    std::atomic<std::uint8_t> lastReadSlot{0};
    std::atomic<std::uint8_t> lastGeneration{kNone};
    FilledAtomics<std::uint8_t, kBtpSlots> overflowMark{kNone};
    FilledAtomics<std::uint8_t, kHistoryLength> fragmentHistory{kNone};
    std::uint8_t historyIndex = 0;       // the GATT event thread alone
    std::atomic<std::uint32_t> link{0};  // whose fragments the slots hold; GBSSlave_GetLinkNumber
};
ReceiveState state;

/// Holds the frame semaphore. It releases what it took, whatever the set-up calls put in place meanwhile.
class FrameLock
{
public:
    FrameLock() : m_release(btp::platform.semaphoreRelease), m_id(btp::platform.frameSemaphoreId)
    {
        const BTP_SemaphoreCallback wait = btp::platform.semaphoreWait;
        if (wait == nullptr)
            m_release = nullptr;
        else
            wait(m_id);
    }
    ~FrameLock()
    {
        if (m_release != nullptr)
            m_release(m_id);
    }
    FrameLock(const FrameLock&) = delete;
    FrameLock& operator=(const FrameLock&) = delete;

private:
    BTP_SemaphoreCallback m_release;
    unsigned m_id;
};

/// Counts whole seconds. Without a clock the time is up at once.
class Timeout
{
public:
    explicit Timeout(unsigned seconds) : m_seconds(seconds) { getTime(m_start); }

    [[nodiscard]] bool passed() const
    {
        const BTP_SubTimeCallback subTime = btp::platform.subTime;
        GClock now{};
        GClock elapsed{};
        if (subTime == nullptr || !getTime(now))
            return true;
        // Its result does not matter: a clock that was set back has no time elapsed.
        subTime(&now, &m_start, &elapsed);
        return elapsed.seconds >= m_seconds;
    }

private:
    static bool getTime(GClock& clock)
    {
        const BTP_GetTimeCallback callback = btp::platform.getTime;
        return callback != nullptr && callback(&clock) == 1;
    }

    unsigned m_seconds;
    GClock m_start{};
};

/// Under the frame semaphore.
void eraseLocked(unsigned index)
{
    state.slots[index].clear();
    state.slotStamp[index] = kNoStamp;
    if (state.overflowMark[index] == index)
        state.overflowMark[index] = kNone;
}

/// The phone that wrote what the slots hold has gone, or they belong to an earlier start.
bool isOver(std::uint32_t link)
{
    return link != GBSSlave_GetLinkNumber();
}

/// Under the frame semaphore, so that a fragment of the new link is never among what is forgotten.
void forgetEndedLink()
{
    const FrameLock lock;
    if (isOver(state.link))
        BTP_Frame_Init();
}

// ---- One fragment comes in --------------------------------------------------------------------------------

bool isRemembered(unsigned slot)
{
    return std::find(state.fragmentHistory.begin(), state.fragmentHistory.end(), slot) !=
           state.fragmentHistory.end();
}

void remember(unsigned slot)
{
    state.fragmentHistory[state.historyIndex] = static_cast<std::uint8_t>(slot);
    state.historyIndex = static_cast<std::uint8_t>((state.historyIndex + 1) % kHistoryLength);
}

/// Makes room for the frame that a first fragment opens. Fragments that overtook it stay.
void openSlot(unsigned index)
{
    Slot& slot = state.slots[index];
    if (slot.state == SlotState::InProgress && slot.expectedLength == 0)
        return;
    if (slot.state == SlotState::Complete) {
        slot.storedLength = 0;
        ++slot.generation;
        state.slotStamp[index] = kNoStamp;
    }
    EraseBTPFrameSlot(index);
}

/// @return false when the frame is too long to be received
bool announceFrame(unsigned index, unsigned fragment, unsigned length)
{
    const std::uint64_t announced = std::uint64_t{kBtpFragmentPayload} * fragment + length - kBtpHeaderLength;
    if (announced > kBtpFrameLength) {
        EraseBTPFrameSlot(index);
        state.overflowMark[index] = static_cast<std::uint8_t>(index);
        return false;
    }
    state.slots[index].expectedLength = static_cast<std::uint32_t>(announced);
    return true;
}

/// Payload bytes of a write that are kept: 1 to 69, or 0 for a write that is dropped. The length counts
/// modulo 256, as everywhere on the way from the radio.
unsigned keptPayload(unsigned length)
{
    const unsigned bytes = length % 256;
    return bytes > kBtpHeaderLength && bytes <= kBtpFragmentLength ? bytes - kBtpHeaderLength : 0;
}

/// A repeated fragment replaces the earlier one.
void storeFragment(Slot& slot, unsigned fragment, const std::uint8_t* payload, unsigned length)
{
    const FrameLock lock;
    std::memcpy(slot.payload(fragment, length), payload, length);
    slot.changeStored(length, slot.held(fragment));
    slot.setHeld(fragment, length);
}

std::uint32_t takeStamp()
{
    const std::uint32_t stamp = state.nextStamp;
    state.nextStamp = stamp == kLastStamp ? kFirstStamp : stamp + 1;
    return stamp;
}

void judgeSlot(unsigned index)
{
    Slot& slot = state.slots[index];
    const std::uint32_t expected = slot.expectedLength;
    if (expected != slot.storedLength) {
        slot.state = SlotState::InProgress;
    } else if (expected != 0) {
        // In this order: a reader that finds the frame before its stamp is set would leave the stamp behind
        // on an empty slot, where it hides the next frame.
        state.slotStamp[index] = takeStamp();
        slot.state = SlotState::Complete;
        if (const BTP_RxSignalCallback rxSignal = btp::platform.rxSignal; rxSignal != nullptr)
            rxSignal();
    }
}

// ---- Frames are read --------------------------------------------------------------------------------------

/// Looking at a stamp uses it up unless it is older than all before it: part of the interface, see
/// BTP_Receive. A stamp that is given while we look is not used up.
unsigned chooseSlot()
{
    unsigned candidate = 0;
    std::uint32_t oldest = state.slotStamp[0];
    for (unsigned index = 0; index < kBtpSlots; ++index) {
        std::uint32_t stamp = state.slotStamp[index];
        if (stamp < oldest) {
            oldest = stamp;
            candidate = index;
        } else {
            state.slotStamp[index].compare_exchange_strong(stamp, kNoStamp);
        }
    }
    return candidate;
}

/// Drops a frame that was read in part when another one comes first, without the semaphore.
/// @return false when the reader has to start over
bool mayRead(unsigned candidate)
{
    const std::uint8_t current = state.currentReadSlot;
    if (current == candidate) {
        if (state.slots[candidate].generation == state.lastGeneration)
            return true;
    } else if (current < kBtpSlots) {
        state.slots[current].clear();
        state.slotStamp[current] = kNoStamp;
    } else {
        return true;
    }
    state.currentReadSlot = kNone;
    return false;
}

/// Fragments that can be delivered, from number count - 1 down to 0, the order in which they were sent.
unsigned deliverable(const Slot& slot)
{
    unsigned count = 0;
    while (count < kBtpFragmentsPerSlot && slot.held(count) != 0)
        ++count;
    return count;
}

/// Copies from one frame, under the frame semaphore, at most @p limit bytes.
unsigned takeLocked(Slot& slot, std::uint8_t* out, unsigned limit)
{
    unsigned taken = 0;
    for (unsigned left = deliverable(slot); left > 0 && taken < limit; --left) {
        const unsigned fragment = left - 1;
        const unsigned held = slot.held(fragment);
        const unsigned piece = std::min(held, limit - taken);
        std::memcpy(out + taken, slot.payload(fragment, held), piece);
        slot.setHeld(fragment, held - piece);
        taken += piece;
    }
    slot.changeStored(0, taken);
    return taken;
}

/// A new first fragment, or the end of the link, may have taken the frame away since it was chosen.
bool isStillComplete(const Slot& slot)
{
    return slot.state == SlotState::Complete;
}

unsigned readPart(unsigned index, std::uint8_t* out, unsigned limit)
{
    const FrameLock lock;
    Slot& slot = state.slots[index];
    if (!isStillComplete(slot))
        return 0;
    const unsigned taken = takeLocked(slot, out, limit);
    if (taken == 0) {
        // A frame with a gap below all of its fragments: nobody will ever read it.
        eraseLocked(index);
        return 0;
    }
    state.currentReadSlot = static_cast<std::uint8_t>(index);
    state.lastReadSlot = static_cast<std::uint8_t>(index);
    state.lastGeneration = slot.generation.load();
    return taken;
}

unsigned readWhole(unsigned index, std::uint8_t* out)
{
    // One hold of the semaphore for both: a frame that arrived in between would be erased unread.
    const FrameLock lock;
    if (!isStillComplete(state.slots[index]))
        return 0;
    const unsigned taken = takeLocked(state.slots[index], out, kBtpSlotCapacity);
    eraseLocked(index);
    state.lastReadSlot = static_cast<std::uint8_t>(index);
    if (state.currentReadSlot == index)
        state.currentReadSlot = kNone;
    state.lastGeneration = kNone;
    return taken;
}
}  // namespace

void call_back_BTP_Receive(const std::uint8_t* data, unsigned length)
{
    if (isOver(state.link))
        forgetEndedLink();
    if (data == nullptr || length == 0) {
        remember(kNone);
        return;
    }
    const unsigned index = btpSlot(data[0]);
    const unsigned fragment = btpFragmentNumber(data[0]);
    if (!isRemembered(index))
        EraseBTPFrameSlot(index);
    if (btpIsFirst(data[0])) {
        openSlot(index);
        if (!announceFrame(index, fragment, length))
            return;
    }
    if (const unsigned payload = keptPayload(length); payload > 0) {
        storeFragment(state.slots[index], fragment, data + kBtpHeaderLength, payload);
        judgeSlot(index);
    }
    remember(index);
}

std::uint32_t BTP_RxLink()
{
    return state.link;
}

unsigned BTP_Receive(void* buffer, unsigned maxLength, unsigned timeoutSeconds)
{
    return BTP_ReceiveOnLink(state.link, buffer, maxLength, timeoutSeconds);
}

unsigned BTP_ReceiveOnLink(std::uint32_t link, void* buffer, unsigned maxLength, unsigned timeoutSeconds)
{
    auto* const out = static_cast<std::uint8_t*>(buffer);
    const Timeout timeout(timeoutSeconds);
    unsigned read = 0;
    while (read < maxLength) {
        const bool keepWaiting = TotalRxBytesAvailable() > 0 || !timeout.passed();
        const unsigned index = chooseSlot();
        const Slot& slot = state.slots[index];
        if (slot.state == SlotState::Complete && link == state.link) {
            if (!mayRead(index))
                return 0;
            read += maxLength < slot.storedLength ? readPart(index, out + read, maxLength - read)
                                                  : readWhole(index, out + read);
        } else if (!keepWaiting || isOver(link)) {
            forgetEndedLink();  // nobody will find what is left of it
            btp::delay(kPollMs);
            return read;
        }
        btp::delay(kPollMs);
    }
    return read;
}

unsigned BTP_IO_Read(void* buffer, unsigned maxLength, unsigned timeoutSeconds)
{
    return BTP_Receive(buffer, maxLength, timeoutSeconds);
}

unsigned TotalRxBytesAvailable()
{
    const FrameLock lock;
    unsigned total = 0;
    for (const Slot& slot : state.slots) {
        if (slot.state == SlotState::Complete)
            total += std::min<unsigned>(slot.storedLength, kBtpSlotCapacity);
    }
    return total;
}

unsigned BTP_RxBytesAvailable()
{
    return TotalRxBytesAvailable();
}

int BTP_Wait_Until_Data_Received(int timeoutMs)
{
    GOS_WaitForSignal(btp::kSignalDataReceived, timeoutMs);
    return 0;
}

int BTP_LoopBack()
{
    // The transmit buffer belongs to the writer that holds semaphore 4, and is shorter than what a read of a
    // full message may deliver.
    std::array<std::uint8_t, kBtpMessageLength - 1 + kBtpSlotCapacity> buffer;
    const unsigned length = BTP_Receive(buffer.data(), kBtpMessageLength, 0);
    return length == 0 ? 0 : BTP_IO_Write(buffer.data(), length);
}

void BTP_Frame_Init()
{
    BRISCA_TRACE(logNode, "BTP Frame init");
    for (Slot& slot : state.slots)
        slot.clear();
    state.slotStamp.fill(kNoStamp);
    state.overflowMark.fill(kNone);
    state.currentReadSlot = kNone;
    state.nextStamp = kFirstStamp;
    state.lastReadSlot = 0;
    state.fragmentHistory.fill(kNone);
    state.link = GBSSlave_GetLinkNumber();
}

void BTP_Restart()
{
    const FrameLock lock;
    BTP_Frame_Init();
}

void EraseBTPFrameBuffer()
{
    BRISCA_TRACE(logNode, "EraseBTPFrameBuffer");
    const FrameLock lock;
    for (unsigned index = 0; index < kBtpSlots; ++index)
        eraseLocked(index);
    std::fill_n(state.fragmentHistory.begin(), kHistoryFreedByErase, kNone);
}

int EraseBTPFrameSlot(unsigned slot)
{
    if (slot >= kBtpSlots)
        return kBtpInvalidSlot;
    const FrameLock lock;
    eraseLocked(slot);
    return 1;
}

void BTP_Process_Rx_Signal()
{
    GOS_SendSignal(btp::kSignalFrameComplete, GOS_GetTaskID(btp::kManagerTask));
}
