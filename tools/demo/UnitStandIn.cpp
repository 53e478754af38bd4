// Stands in for systemd where there is none: takes the notifications of one service and shows its status on
// the bus, as the unit's object does. usage: unit-stand-in NOTIFY-SOCKET
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>

#include <poll.h>

#include <cstring>
#include <string>

namespace {
constexpr const char* kManagerPath = "/org/freedesktop/systemd1";
constexpr const char* kUnitPath = "/org/freedesktop/systemd1/unit/brisca_2eservice";

int getUnit(sd_bus_message* call, void*, sd_bus_error*)
{
    return sd_bus_reply_method_return(call, "o", kUnitPath);
}

int getText(sd_bus*, const char*, const char*, const char* name, sd_bus_message* reply, void* data,
            sd_bus_error*)
{
    const bool isStatus = std::strcmp(name, "StatusText") == 0;
    return sd_bus_message_append(reply, "s",
                                 isStatus ? static_cast<const std::string*>(data)->c_str() : "no");
}

int getPrivateTmp(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply, void*, sd_bus_error*)
{
    return sd_bus_message_append(reply, "b", 0);
}

const sd_bus_vtable kManager[] = {
    SD_BUS_VTABLE_START(0), SD_BUS_METHOD("GetUnitByPID", "u", "o", getUnit, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};
const sd_bus_vtable kService[] = {SD_BUS_VTABLE_START(0), SD_BUS_PROPERTY("StatusText", "s", getText, 0, 0),
                                  SD_BUS_PROPERTY("ProtectHome", "s", getText, 0, 0),
                                  SD_BUS_PROPERTY("PrivateTmp", "b", getPrivateTmp, 0, 0), SD_BUS_VTABLE_END};

int openSocket(const char* path)
{
    const int descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {AF_UNIX, {}};
    std::strncpy(address.sun_path, path, sizeof address.sun_path - 1);
    return ::bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 ? descriptor
                                                                                                : -1;
}

bool takeNotification(int descriptor, std::string& status)
{
    constexpr const char* kStatus = "STATUS=";
    char text[1024];
    const ssize_t length = ::recv(descriptor, text, sizeof text, MSG_DONTWAIT);
    const std::string told(text, length > 0 ? static_cast<std::size_t>(length) : 0);
    if (told.rfind(kStatus, 0) == 0)
        status = told.substr(std::strlen(kStatus));
    return length > 0;
}

int serve(sd_bus* bus, int descriptor, std::string& status)
{
    for (;;) {
        pollfd entries[] = {{descriptor, POLLIN, 0}, {sd_bus_get_fd(bus), POLLIN, 0}};
        if (::poll(entries, 2, -1) < 0 || (entries[1].revents & (POLLHUP | POLLERR)) != 0)
            return 1;
        do {  // whoever asks on the bus is told the latest status
            while (takeNotification(descriptor, status)) {
            }
        } while (sd_bus_process(bus, nullptr) > 0);
    }
}
}  // namespace

int main(int argc, char** argv)
{
    std::string status;
    sd_bus* bus = nullptr;
    if (argc != 2 || sd_bus_open_system(&bus) < 0)
        return 1;
    sd_bus_add_object_vtable(bus, nullptr, kManagerPath, "org.freedesktop.systemd1.Manager", kManager,
                             nullptr);
    sd_bus_add_object_vtable(bus, nullptr, kUnitPath, "org.freedesktop.systemd1.Service", kService, &status);
    const int descriptor = openSocket(argv[1]);
    if (descriptor < 0 || sd_bus_request_name(bus, "org.freedesktop.systemd1", 0) < 0)
        return 1;
    return serve(bus, descriptor, status);
}
