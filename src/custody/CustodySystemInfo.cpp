#include "custody/CustodySystemInfo.h"

#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <fstream>
#include <vector>

#ifdef __APPLE__
#include <sys/sysctl.h>
#include <sys/types.h>
#endif

#include "BuildInfo.h"
#include "support/Text.h"

namespace bc::custodySystemInfo {

namespace {

std::string uname(std::string (*pick)(const struct utsname&)) {
    struct utsname names {};
    if (::uname(&names) != 0) return "";
    return pick(names);
}

#ifdef __APPLE__

std::string sysctlText(const char* name) {
    size_t size = 0;
    if (::sysctlbyname(name, nullptr, &size, nullptr, 0) != 0) return "";
    std::vector<char> buffer(std::max<size_t>(size, 1), '\0');
    if (::sysctlbyname(name, buffer.data(), &size, nullptr, 0) != 0) return "";
    return std::string(buffer.data(), ::strnlen(buffer.data(), buffer.size()));
}

std::string operatingSystem() {
    return "Version " + sysctlText("kern.osproductversion") + " (Build " +
           sysctlText("kern.osversion") + ")";
}

std::string model() {
    return sysctlText("hw.model");
}

#else

std::string firstLine(const char* file) {
    std::ifstream in(file);
    std::string line;
    std::getline(in, line);
    return text::trim(line);
}

// PRETTY_NAME of os-release, quotes removed; the kernel's name and release when absent.
std::string operatingSystem() {
    for (const char* file : {"/etc/os-release", "/usr/lib/os-release"}) {
        std::ifstream in(file);
        std::string line;
        while (std::getline(in, line)) {
            if (!line.starts_with("PRETTY_NAME=")) continue;
            std::string value = text::trim(line.substr(12));
            if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
                value.back() == value.front())
                value = value.substr(1, value.size() - 2);
            if (!value.empty()) return value;
        }
    }
    return uname([](const struct utsname& n) { return std::string(n.sysname) + " " + n.release; });
}

// Virtual machines and containers often have no DMI table; the architecture is still true.
std::string model() {
    std::string product = firstLine("/sys/class/dmi/id/product_name");
    if (!product.empty()) return product;
    return uname([](const struct utsname& n) { return std::string(n.machine); });
}

#endif

std::string hostName() {
    char buffer[256] = {};
    if (::gethostname(buffer, sizeof buffer - 1) != 0) return "";
    return buffer;
}

// The account's full name (first GECOS field); its login name when no full name is set.
std::string fullUserName() {
    const passwd* account = ::getpwuid(::getuid());
    if (!account) return "";
    const std::string gecos = account->pw_gecos ? account->pw_gecos : "";
    const std::string fullName = text::trim(gecos.substr(0, gecos.find(',')));
    return fullName.empty() && account->pw_name ? account->pw_name : fullName;
}

}  // namespace

std::string appVersion(std::string_view version, std::string_view build) {
    return std::string(version.empty() ? "dev" : version) + " (" +
           std::string(build.empty() ? "0" : build) + ")";
}

std::string appVersion() {
    return appVersion(build::version, build::number);
}

CustodySystemInfo current() {
    return {.appVersion = appVersion(),
            .macOS = operatingSystem(),
            .model = model(),
            .host = hostName(),
            .user = fullUserName()};
}

}  // namespace bc::custodySystemInfo
