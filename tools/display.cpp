#include "display.h"

#include <netdb.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>

namespace cli {
namespace {

bool connects(int family, const sockaddr* address, socklen_t length) {
    const int fd = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    const bool ok = ::connect(fd, address, length) == 0;
    ::close(fd);
    return ok;
}

// A path socket, or with a leading '@' one in the abstract namespace.
bool unixConnects(const std::string& path) {
    sockaddr_un a{};
    a.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof(a.sun_path)) return false;
    std::memcpy(a.sun_path, path.data(), path.size());
    if (path[0] == '@') a.sun_path[0] = '\0';
    return connects(AF_UNIX, reinterpret_cast<sockaddr*>(&a),
                    static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size()));
}

bool tcpConnects(const std::string& host, int port) {
    addrinfo hints{}, *found = nullptr;
    hints.ai_socktype = SOCK_STREAM;
    if (::getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0)
        return false;
    bool ok = false;
    for (addrinfo* a = found; a != nullptr && !ok; a = a->ai_next)
        ok = connects(a->ai_family, a->ai_addr, a->ai_addrlen);
    ::freeaddrinfo(found);
    return ok;
}

}  // namespace

bool displayReachable() {
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    if (wayland != nullptr && *wayland != '\0') {
        const std::string w = wayland;
        if (w[0] == '/' ? unixConnects(w) : runtime != nullptr && unixConnects(runtime + ("/" + w)))
            return true;
    }
    const char* x11 = std::getenv("DISPLAY");
    if (x11 == nullptr || *x11 == '\0') return false;
    // "[host]:N[.S]"
    const std::string d = x11;
    const size_t colon = d.rfind(':');
    if (colon == std::string::npos) return false;
    const int number = std::atoi(d.c_str() + colon + 1);
    const std::string host = d.substr(0, colon);
    if (host.empty() || host == "unix") {
        const std::string path = "/tmp/.X11-unix/X" + std::to_string(number);
        return unixConnects("@" + path) || unixConnects(path);
    }
    return tcpConnects(host, 6000 + number);
}

}  // namespace cli
