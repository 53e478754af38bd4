// The reference CoAP application: a small libcoap server behind the service's two named pipes. It shows
// the author of a real application how the pipes are read and written, and answers the demo's phone.
//
// From the service: 2 bytes little-endian N, then N bytes, a CoAP message.
// To the service:   2 bytes that nobody reads, 2 bytes big-endian L (1 to 4475), then L bytes.

#include "DatagramGate.h"

#include <coap3/coap.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {
constexpr const char* kFromServicePath = "/tmp/ttyBleRx";
constexpr const char* kToServicePath = "/tmp/ttyBleTx";
constexpr std::size_t kLargestAnswer = 4475;
constexpr std::size_t kRequestHeaderSize = 2;
constexpr unsigned kSessionMtu = 4400;
constexpr int kIdleWaitMs = 1000;

std::string chargingLimit = "16";
const auto started = std::chrono::steady_clock::now();

void answer(coap_pdu_t* response, coap_pdu_code_t code, const std::string& text)
{
    coap_pdu_set_code(response, code);
    if (!text.empty())
        coap_add_data(response, text.size(), reinterpret_cast<const std::uint8_t*>(text.data()));
}

std::string payloadOf(const coap_pdu_t* request)
{
    std::size_t size = 0;
    const std::uint8_t* data = nullptr;
    if (coap_get_data(request, &size, &data) == 0)
        return {};
    return {reinterpret_cast<const char*>(data), size};
}

void getStatus(coap_resource_t*, coap_session_t*, const coap_pdu_t*, const coap_string_t*,
               coap_pdu_t* response)
{
    const auto uptime =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - started);
    answer(response, COAP_RESPONSE_CODE_CONTENT,
           R"({"station":"demo","state":"available","limit_A":)" + chargingLimit + R"(,"uptime_s":)" +
               std::to_string(uptime.count()) + "}");
}

void getLimit(coap_resource_t*, coap_session_t*, const coap_pdu_t*, const coap_string_t*,
              coap_pdu_t* response)
{
    answer(response, COAP_RESPONSE_CODE_CONTENT, chargingLimit);
}

void putLimit(coap_resource_t*, coap_session_t*, const coap_pdu_t* request, const coap_string_t*,
              coap_pdu_t* response)
{
    const std::string text = payloadOf(request);
    char* end = nullptr;
    const long ampere = std::strtol(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || ampere < 6 || ampere > 32) {
        answer(response, COAP_RESPONSE_CODE_BAD_REQUEST, "6 to 32 A");
        return;
    }
    chargingLimit = std::to_string(ampere);
    answer(response, COAP_RESPONSE_CODE_CHANGED, {});
}

void postEcho(coap_resource_t*, coap_session_t*, const coap_pdu_t* request, const coap_string_t*,
              coap_pdu_t* response)
{
    answer(response, COAP_RESPONSE_CODE_CHANGED, payloadOf(request));
}

/// GET blob?N answers with N bytes, at most 4000: a long answer of many fragments.
void getBlob(coap_resource_t*, coap_session_t*, const coap_pdu_t*, const coap_string_t* query,
             coap_pdu_t* response)
{
    const std::string number =
        query == nullptr ? "1000" : std::string(reinterpret_cast<const char*>(query->s), query->length);
    const long wanted = std::strtol(number.c_str(), nullptr, 10);
    if (wanted < 1 || wanted > 4000) {
        answer(response, COAP_RESPONSE_CODE_BAD_REQUEST, "1 to 4000 bytes");
        return;
    }
    std::string text(static_cast<std::size_t>(wanted), '.');
    for (std::size_t index = 0; index < text.size(); ++index)
        text[index] = static_cast<char>('a' + index % 26);
    answer(response, COAP_RESPONSE_CODE_CONTENT, text);
}

struct Resource
{
    const char* path;
    coap_request_t method;
    coap_method_handler_t handler;
};
constexpr std::array<Resource, 5> kResources = {{
    {"status", COAP_REQUEST_GET, getStatus},
    {"limit", COAP_REQUEST_GET, getLimit},
    {"limit", COAP_REQUEST_PUT, putLimit},
    {"echo", COAP_REQUEST_POST, postEcho},
    {"blob", COAP_REQUEST_GET, getBlob},
}};

/// The libcoap server on a loopback port of its own.
class Server
{
public:
    Server()
    {
        coap_startup();
        m_context = coap_new_context(nullptr);
        coap_register_event_handler(m_context, onEvent);
        for (const Resource& entry : kResources)
            addResource(entry);
    }
    ~Server()
    {
        coap_free_context(m_context);
        coap_cleanup();
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Binds to a free port and returns it; 0 when there is none.
    std::uint16_t listen()
    {
        coap_address_t address;
        coap_address_init(&address);
        address.addr.sin.sin_family = AF_INET;
        address.addr.sin.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.size = sizeof address.addr.sin;
        const coap_endpoint_t* const endpoint = coap_new_endpoint(m_context, &address, COAP_PROTO_UDP);
        if (endpoint == nullptr)
            return 0;
        const std::string name = coap_endpoint_str(endpoint);  // "127.0.0.1:PORT UDP"
        return static_cast<std::uint16_t>(std::strtoul(name.substr(name.find(':') + 1).c_str(), nullptr, 10));
    }
    [[nodiscard]] int descriptor() const { return coap_context_get_coap_fd(m_context); }
    void process() { coap_io_process(m_context, COAP_IO_NO_WAIT); }

private:
    static int onEvent(coap_session_t* session, coap_event_t event)
    {
        if (event == COAP_EVENT_SERVER_SESSION_NEW)
            coap_session_set_mtu(session, kSessionMtu);
        return 0;
    }

    void addResource(const Resource& entry)
    {
        coap_str_const_t* const path = coap_make_str_const(entry.path);
        coap_resource_t* resource = coap_get_resource_from_uri_path(m_context, path);
        if (resource == nullptr) {
            resource = coap_resource_init(path, 0);
            coap_add_resource(m_context, resource);
        }
        coap_register_request_handler(resource, entry.method, entry.handler);
    }

    coap_context_t* m_context = nullptr;
};

/// Opens a pipe of the service; both exist before the service starts this application.
int openPipe(const char* path)
{
    // Read and write: the pipe then never reports an end of file when the service restarts.
    const int pipe = ::open(path, O_RDWR | O_CLOEXEC | O_NONBLOCK);
    if (pipe < 0)
        (void)std::fprintf(stderr, "chp: cannot open %s: %s\n", path, std::strerror(errno));
    return pipe;
}

void waitFor(int descriptor, short events)
{
    pollfd entry = {descriptor, events, 0};
    (void)::poll(&entry, 1, kIdleWaitMs);
}

/// Reads exactly @p size bytes; the service writes a frame in two pieces.
bool readFully(int pipe, std::uint8_t* bytes, std::size_t size)
{
    for (std::size_t have = 0; have < size;) {
        const ssize_t got = ::read(pipe, bytes + have, size - have);
        if (got > 0)
            have += static_cast<std::size_t>(got);
        else if (got < 0 && errno == EAGAIN && have > 0)
            waitFor(pipe, POLLIN);
        else
            return false;
    }
    return true;
}

void forwardRequest(int pipe, const demo::DatagramGate& gate)
{
    std::array<std::uint8_t, kRequestHeaderSize> header = {};
    if (!readFully(pipe, header.data(), header.size()))
        return;
    std::vector<std::uint8_t> message(static_cast<std::size_t>(header[0] | header[1] << 8));
    waitFor(pipe, POLLIN);
    if (!message.empty() && readFully(pipe, message.data(), message.size()))
        gate.send(message);
}

void forwardAnswer(demo::DatagramGate& gate, int pipe)
{
    const auto message = gate.receive();
    if (!message || message->empty() || message->size() > kLargestAnswer)
        return;
    std::vector<std::uint8_t> frame = {0, 0, static_cast<std::uint8_t>(message->size() >> 8),
                                       static_cast<std::uint8_t>(message->size() & 0xFF)};
    frame.insert(frame.end(), message->begin(), message->end());
    for (std::size_t done = 0; done < frame.size();) {
        const ssize_t written = ::write(pipe, frame.data() + done, frame.size() - done);
        if (written > 0)
            done += static_cast<std::size_t>(written);
        else if (written < 0 && errno == EAGAIN)
            waitFor(pipe, POLLOUT);
        else
            return;
    }
}
}  // namespace

int main(int argc, char** argv)
{
    (void)std::fprintf(stderr, "chp: reference CoAP application for %s\n",
                       argc > 1 ? argv[1] : "(no address)");
    const int fromService = openPipe(kFromServicePath);
    const int toService = openPipe(kToServicePath);
    Server server;
    const std::uint16_t port = server.listen();
    if (fromService < 0 || toService < 0 || port == 0)
        return EXIT_FAILURE;
    demo::DatagramGate gate;
    gate.connectTo(port);
    for (;;) {
        std::array<pollfd, 3> entries = {
            {{fromService, POLLIN, 0}, {gate.descriptor(), POLLIN, 0}, {server.descriptor(), POLLIN, 0}}};
        (void)::poll(entries.data(), entries.size(), kIdleWaitMs);
        if (entries[0].revents != 0)
            forwardRequest(fromService, gate);
        server.process();
        forwardAnswer(gate, toService);
    }
}
