#include "NCPDriver.h"

#include "LineOwner.h"
#include "gecko.h"
#include "uart_posix.h"

#include <algorithm>

std::uint32_t NCPDriver_Init(const char* path)
{
    bglib_output = NCPDriver_Tx;
    bglib_input = NCPDriver_Rx;
    bglib_peek = NCPDriver_RxPeek;
    return LineOwner::take(path) ? 1 : 0;
}

std::int32_t NCPDriver_Tx(std::uint32_t length, const std::uint8_t* bytes)
{
    return uartTx(length, bytes);
}

std::int32_t NCPDriver_Rx(std::uint32_t length, std::uint8_t* buffer)
{
    return uartRx(length, buffer);
}

std::int32_t NCPDriver_RxPeek()
{
    return uartRxPeek();
}

std::uint32_t NCPDriver_RxAll(std::uint8_t* buffer, std::uint32_t capacity)
{
    const std::int32_t waiting = uartRxPeek();
    if (waiting <= 0)
        return 0;
    const std::uint32_t wanted = std::min(static_cast<std::uint32_t>(waiting), capacity);
    return static_cast<std::uint32_t>(std::max(uartRxNonBlocking(wanted, buffer), 0));
}

void NCPDriver_Enable() {}

void NCPDriver_Disable() {}

void NCPDriver_ClearRXBuffer() {}
