#include "NCP_Exchange.h"

#include "NCP_State.h"

#include <cstring>

namespace ncp {
namespace {
std::size_t sizeOf(const Field& field)
{
    return field.width != 0 ? field.width : 1u + field.count;
}

std::uint8_t* put(std::uint8_t* at, const Field& field)
{
    for (std::uint8_t i = 0; i < field.width; ++i)
        *at++ = static_cast<std::uint8_t>(field.integer >> (8 * i));
    if (field.width != 0)
        return at;
    *at++ = field.count;
    if (field.count != 0)
        std::memcpy(at, field.bytes, field.count);
    return at + field.count;
}

bool isSendable(const Field& field)
{
    return field.count == 0 || field.bytes != nullptr;
}

/// @return false, with nothing written, when the fields do not fit one packet
bool fillCommand(Command command, std::initializer_list<Field> fields)
{
    std::size_t length = 0;
    for (const Field& field : fields) {
        if (!isSendable(field))
            return false;
        length += sizeOf(field);
    }
    if (length > kGeckoMaxPayload)
        return false;
    gecko_set_header(*gecko_cmd_msg, command.classId, command.id, length);
    std::uint8_t* at = gecko_cmd_msg->payload.data();
    for (const Field& field : fields)
        at = put(at, field);
    return true;
}
}  // namespace

Exchange::Exchange(Command command, std::initializer_list<Field> fields)
{
    *gecko_rsp_msg = {};  // so that no earlier response is taken for this one
    if (!fillCommand(command, fields))
        return;
    gecko_handle_command(gecko_header(*gecko_cmd_msg), gecko_cmd_msg->payload.data());
    m_answered = gecko_response_id(*gecko_rsp_msg) == gecko_response_id(command.classId, command.id);
    if (m_answered)
        noteAnswer();
}

PayloadReader Exchange::outputs() const
{
    PayloadReader reader = payload();
    reader.u16();
    return reader;
}

std::uint32_t run(Command command, std::initializer_list<Field> fields)
{
    return Exchange(command, fields).succeeded() ? 1 : 0;
}

void sendOnly(Command command, std::initializer_list<Field> fields)
{
    const LineOwner::ExchangeTurn turn;
    if (fillCommand(command, fields))
        gecko_handle_command_noresponse(gecko_header(*gecko_cmd_msg), gecko_cmd_msg->payload.data());
}

std::uint32_t runAndWait(Command command, std::initializer_list<Field> fields, std::uint32_t eventId)
{
    EventWait wait(eventId);
    return run(command, fields) == 1 && wait.completed() ? 1 : 0;
}
}  // namespace ncp
