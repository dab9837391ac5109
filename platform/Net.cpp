#include "platform/Net.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "platform/Exception.h"

namespace vessa::sal::io {

namespace {

std::string numeric(const sockaddr* sa) {
    char text[INET6_ADDRSTRLEN] = {};
    if (sa->sa_family == AF_INET) {
        ::inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in*>(sa)->sin_addr, text, sizeof text);
    } else if (sa->sa_family == AF_INET6) {
        ::inet_ntop(AF_INET6, &reinterpret_cast<const sockaddr_in6*>(sa)->sin6_addr, text, sizeof text);
    }
    return text;
}

}  // namespace

AINETAddress AINETAddress::resolve(const std::string& name) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    int rc = ::getaddrinfo(name.c_str(), nullptr, &hints, &found);
    if (rc != 0 || found == nullptr) {
        throw Exception("cannot resolve host " + name + ": " + ::gai_strerror(rc), sal::err::kNotFound);
    }
    std::string best;
    for (addrinfo* a = found; a != nullptr; a = a->ai_next) {
        std::string text = numeric(a->ai_addr);
        if (text.empty()) {
            continue;
        }
        if (a->ai_family == AF_INET) {
            best = text;
            break;
        }
        if (best.empty()) {
            best = text;
        }
    }
    ::freeaddrinfo(found);
    if (best.empty()) {
        throw Exception("cannot resolve host " + name, sal::err::kNotFound);
    }
    return AINETAddress(best);
}

std::vector<std::string> AINETAddress::interfaceAddresses() {
    std::vector<std::string> result;
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        return result;
    }
    for (ifaddrs* i = list; i != nullptr; i = i->ifa_next) {
        if (i->ifa_addr == nullptr) {
            continue;
        }
        std::string text = numeric(i->ifa_addr);
        if (!text.empty()) {
            result.push_back(text);
        }
    }
    ::freeifaddrs(list);
    return result;
}

}  // namespace vessa::sal::io
