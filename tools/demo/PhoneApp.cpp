// The demo's phone app: sends a CoAP request through the simulated phone and prints the decoded answer, or
// hands any command on to the simulator.

#include "ControlClient.h"
#include "DatagramGate.h"

#include <coap3/coap.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {
constexpr std::chrono::seconds kPatience{30};
constexpr const char* kUsage =
    "usage: brisca-phone SOCKET get|put|post|delete PATH[?QUERY] [PAYLOAD]    a CoAP request\n"
    "       brisca-phone SOCKET COMMAND...                   any command of the simulator, e.g. scan, help\n";

struct Method
{
    std::string_view name;
    coap_request_t code;
};
constexpr std::array<Method, 4> kMethods = {{{"get", COAP_REQUEST_GET},
                                             {"put", COAP_REQUEST_PUT},
                                             {"post", COAP_REQUEST_POST},
                                             {"delete", COAP_REQUEST_DELETE}}};

std::optional<coap_request_t> methodOf(std::string_view name)
{
    for (const Method& method : kMethods) {
        if (method.name == name)
            return method.code;
    }
    return std::nullopt;
}

std::string toHex(std::span<const std::uint8_t> bytes)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes)
        text.append({digits[byte >> 4], digits[byte & 15]});
    return text;
}

std::vector<std::uint8_t> fromHex(std::string_view text)
{
    std::vector<std::uint8_t> bytes(text.size() / 2);
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        const char* const pair = text.data() + 2 * index;
        std::from_chars(pair, pair + 2, bytes[index], 16);
    }
    return bytes;
}

/// One CoAP exchange by libcoap, whose datagrams the caller carries.
class CoapExchange
{
public:
    explicit CoapExchange(std::uint16_t gatePort)
    {
        coap_startup();
        m_context = coap_new_context(nullptr);
        coap_set_app_data(m_context, this);
        coap_register_response_handler(m_context, onResponse);
        coap_address_t peer;
        coap_address_init(&peer);
        peer.addr.sin.sin_family = AF_INET;
        peer.addr.sin.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        peer.addr.sin.sin_port = htons(gatePort);
        peer.size = sizeof peer.addr.sin;
        m_session = coap_new_client_session(m_context, nullptr, &peer, COAP_PROTO_UDP);
        coap_session_set_mtu(m_session, 4480);
    }
    ~CoapExchange()
    {
        coap_session_release(m_session);
        coap_free_context(m_context);
        coap_cleanup();
    }
    CoapExchange(const CoapExchange&) = delete;
    CoapExchange& operator=(const CoapExchange&) = delete;

    void send(coap_request_t method, std::string_view target, std::string_view payload)
    {
        coap_pdu_t* const pdu =
            coap_new_pdu(COAP_MESSAGE_CON, static_cast<coap_pdu_code_t>(method), m_session);
        coap_prng(m_token, sizeof m_token);
        coap_add_token(pdu, sizeof m_token, m_token);
        const std::string_view path = target.substr(0, target.find('?'));
        addParts(pdu, COAP_OPTION_URI_PATH, path, '/');
        if (path.size() < target.size())
            addParts(pdu, COAP_OPTION_URI_QUERY, target.substr(path.size() + 1), '&');
        if (!payload.empty())
            coap_add_data(pdu, payload.size(), reinterpret_cast<const std::uint8_t*>(payload.data()));
        if (coap_send(m_session, pdu) == COAP_INVALID_MID)
            throw std::runtime_error("the request is too long");
    }
    /// The decoded answer, once it has come.
    const std::optional<std::string>& process()
    {
        coap_io_process(m_context, COAP_IO_NO_WAIT);
        return m_answer;
    }

private:
    static void addParts(coap_pdu_t* pdu, coap_option_num_t option, std::string_view text, char delimiter)
    {
        while (!text.empty()) {
            const std::string_view part = text.substr(0, text.find(delimiter));
            if (!part.empty())
                coap_add_option(pdu, option, part.size(), reinterpret_cast<const std::uint8_t*>(part.data()));
            text.remove_prefix(std::min(part.size() + 1, text.size()));
        }
    }

    static coap_response_t onResponse(coap_session_t* session, const coap_pdu_t*, const coap_pdu_t* received,
                                      const coap_mid_t)
    {
        auto* const self = static_cast<CoapExchange*>(coap_get_app_data(coap_session_get_context(session)));
        const coap_bin_const_t token = coap_pdu_get_token(received);
        if (!std::equal(token.s, token.s + token.length, self->m_token, std::end(self->m_token)))
            return COAP_RESPONSE_OK;  // of an earlier request: on a busy machine an answer may come twice
        const unsigned code = coap_pdu_get_code(received);
        char head[16];
        (void)std::snprintf(head, sizeof head, "%u.%02u ", code >> 5, code & 31);
        const char* const phrase = coap_response_phrase(static_cast<unsigned char>(code));
        std::size_t size = 0;
        const std::uint8_t* data = nullptr;
        coap_get_data(received, &size, &data);
        std::string answer(head);
        answer.append(phrase == nullptr ? "" : phrase).append("  ");
        self->m_answer = answer.append(reinterpret_cast<const char*>(data), size);
        return COAP_RESPONSE_OK;
    }

    coap_context_t* m_context = nullptr;
    coap_session_t* m_session = nullptr;
    std::uint8_t m_token[8] = {};
    std::optional<std::string> m_answer;
};

/// Sends one message over the air; an answer is fetched separately.
void sendOverTheAir(demo::ControlClient& phone, std::span<const std::uint8_t> message)
{
    const std::string reply = phone.command("message " + toHex(message));
    if (!reply.starts_with("ok"))
        throw std::runtime_error(reply);
}

/// Gives libcoap the next message that the phone receives, if one comes soon.
void receiveFromTheAir(demo::ControlClient& phone, const demo::DatagramGate& gate)
{
    const std::string reply = phone.command("receive 500");
    if (reply.starts_with("ok"))
        gate.send(fromHex(demo::fieldOf(reply, "payload")));
}

/// One request and its answer. libcoap repeats a request whose answer was lost on the way.
std::string request(demo::ControlClient& phone, coap_request_t method, std::string_view target,
                    std::string_view payload)
{
    demo::DatagramGate gate;
    CoapExchange exchange(gate.port());
    exchange.send(method, target, payload);
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (std::chrono::steady_clock::now() < deadline) {
        if (const auto& answer = exchange.process())
            return *answer;
        if (const auto datagram = gate.receive())
            sendOverTheAir(phone, *datagram);
        receiveFromTheAir(phone, gate);
    }
    throw std::runtime_error("no answer");
}

int run(std::span<char*> arguments)
{
    demo::ControlClient phone(arguments[1]);
    if (const auto method = methodOf(arguments[2])) {
        const std::string_view payload = arguments.size() > 4 ? arguments[4] : "";
        std::printf("%s\n",
                    request(phone, *method, arguments.size() > 3 ? arguments[3] : "", payload).c_str());
        return EXIT_SUCCESS;
    }
    std::string line;
    for (const char* word : arguments.subspan(2))
        line.append(line.empty() ? "" : " ").append(word);
    const std::string reply = phone.command(line);
    std::printf("%s\n", reply.c_str());
    return reply.starts_with("ok") ? EXIT_SUCCESS : EXIT_FAILURE;
}
}  // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        (void)std::fputs(kUsage, stderr);
        return EXIT_FAILURE;
    }
    try {
        return run({argv, static_cast<std::size_t>(argc)});
    } catch (const std::exception& failure) {
        (void)std::fprintf(stderr, "brisca-phone: %s\n", failure.what());
        return EXIT_FAILURE;
    }
}
