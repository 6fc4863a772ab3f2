#include "DebugImage.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include <opencv2/highgui.hpp>
#include <opencv2/imgcodecs.hpp>

namespace {

// Connects to a local socket; abstract names start with '@'. Never blocks for long: a local
// connect either succeeds or fails at once.
bool unixReachable(const std::string& name) {
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (name.empty() || name.size() >= sizeof addr.sun_path) return false;
    std::memcpy(addr.sun_path, name.data(), name.size());
    socklen_t len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    if (name[0] == '@') {
        addr.sun_path[0] = '\0';
    } else {
        ++len;
    }
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    const bool ok = ::connect(fd, reinterpret_cast<const sockaddr*>(&addr), len) == 0;
    ::close(fd);
    return ok;
}

// A TCP display on a numeric address, given half a second to answer.
bool tcpReachable(const std::string& host, int port) {
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    if (::inet_pton(AF_INET, host == "localhost" ? "127.0.0.1" : host.c_str(), &addr.sin_addr) != 1)
        return false;  // names would need a resolver that may stall
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) return false;
    bool ok = ::connect(fd, reinterpret_cast<const sockaddr*>(&addr), sizeof addr) == 0;
    if (!ok && errno == EINPROGRESS) {
        pollfd p{fd, POLLOUT, 0};
        int err = 0;
        socklen_t len = sizeof err;
        ok = ::poll(&p, 1, 500) == 1 && ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len) == 0 &&
             err == 0;
    }
    ::close(fd);
    return ok;
}

// The X server named by DISPLAY ("[host]:N[.S]") accepts a connection.
bool x11Reachable(const std::string& display) {
    const size_t colon = display.rfind(':');
    if (colon == std::string::npos || colon + 1 >= display.size()) return false;
    const std::string host = display.substr(0, colon);
    char* end = nullptr;
    const long number = std::strtol(display.c_str() + colon + 1, &end, 10);
    if (end == display.c_str() + colon + 1 || number < 0 || number > 60000) return false;
    if (host.empty() || host == "unix") {
        const std::string path = "/tmp/.X11-unix/X" + std::to_string(number);
        if (!unixReachable("@" + path) && !unixReachable(path)) return false;
    } else if (!tcpReachable(host, 6000 + static_cast<int>(number))) {
        return false;
    }
    // The server may still refuse us (authorisation); ask it the way the toolkit will.
    void* x11 = ::dlopen("libX11.so.6", RTLD_LAZY | RTLD_LOCAL);
    if (x11 == nullptr) return true;
    using OpenFn = void* (*)(const char*);
    using CloseFn = int (*)(void*);
    auto open = reinterpret_cast<OpenFn>(::dlsym(x11, "XOpenDisplay"));
    auto close = reinterpret_cast<CloseFn>(::dlsym(x11, "XCloseDisplay"));
    bool ok = true;
    if (open != nullptr && close != nullptr) {
        void* d = open(display.c_str());
        ok = d != nullptr;
        if (ok) close(d);
    }
    ::dlclose(x11);
    return ok;
}

bool waylandReachable(const std::string& name) {
    if (!name.empty() && name[0] == '/') return unixReachable(name);
    const char* dir = std::getenv("XDG_RUNTIME_DIR");
    return dir != nullptr && *dir != '\0' && unixReachable(std::string(dir) + "/" + name);
}

}  // namespace

bool debugDisplayAvailable() {
    // A variable naming a display that is not there makes the window toolkit abort the process.
    const char* x11 = std::getenv("DISPLAY");
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    return (wayland != nullptr && *wayland != '\0' && waylandReachable(wayland)) ||
           (x11 != nullptr && *x11 != '\0' && x11Reachable(x11));
}

void debugShow(const std::string& window, const cv::Mat& img, int waitMs) {
    if (!debugDisplayAvailable() || img.empty()) return;
    try {
        cv::imshow(window, img);
        if (waitMs >= 0) cv::waitKey(waitMs);
    } catch (const cv::Exception& e) {
        std::cout << "cannot show " << window << ": " << e.what() << std::endl;
    }
}

void debugWait(int waitMs) {
    if (!debugDisplayAvailable()) return;
    try {
        cv::waitKey(waitMs);
    } catch (const cv::Exception&) {
    }
}

bool debugWrite(const std::string& path, const cv::Mat& img) {
    try {
        if (!img.empty() && cv::imwrite(path, img)) return true;
    } catch (const cv::Exception&) {
    }
    std::cout << "cannot write " << path << std::endl;
    return false;
}
