// Masks, and which gateways a device reaches: what a kernel knows of addresses.

#include "text.h"
#include "world.h"

#include <algorithm>
#include <arpa/inet.h>

namespace seam {

namespace {

// In host byte order; nothing for a text that is no address.
std::optional<uint32_t> number_in(const std::string &text)
{
    in_addr out{};
    return inet_pton(AF_INET, text.c_str(), &out) == 1 ? std::optional{ntohl(out.s_addr)} : std::nullopt;
}

// The word of a route behind another one.
std::string word_behind(const std::string &route, const std::string &before)
{
    const std::vector<std::string> all = words(route);
    const auto found = std::find(all.begin(), all.end(), before);
    return found == all.end() || found + 1 == all.end() ? "" : found[1];
}

// Most routes name no device, and all are looked at for each that comes.
bool names_device(const std::string &route)
{
    return route.find(" dev ") != route.npos;
}

std::string without_device(std::string route)
{
    const std::string device = " dev " + word_behind(route, "dev");
    const size_t at = route.find(device);
    return at == route.npos ? route : route.erase(at, device.size());
}

} // namespace

std::string mask_by_class(const std::string &address)
{
    const std::optional<uint32_t> number = number_in(address);
    return !number              ? ""
           : *number >> 31 == 0 ? "255.0.0.0"
           : *number >> 30 == 2 ? "255.255.0.0"
           : *number >> 29 == 6 ? "255.255.255.0"
                                : "255.255.255.255";
}

bool same_route(const std::string &a, const std::string &b)
{
    return a == b || (names_device(b) && a == without_device(b)) ||
           (names_device(a) && without_device(a) == b);
}

bool System::reaches(const std::string &gateway, const std::string &name) const
{
    const std::optional<uint32_t> wanted = number_in(gateway);
    return !checks_gateways || std::any_of(devices.begin(), devices.end(), [&](const auto &entry) {
        const Device &one = entry.second;
        const std::optional<uint32_t> own = number_in(one.address);
        const std::optional<uint32_t> mask =
            number_in(one.mask.empty() ? mask_by_class(one.address) : one.mask);
        return (name.empty() || name == entry.first) && one.up && wanted && own && mask && wanted != own &&
               (*wanted & *mask) == (*own & *mask);
    });
}

void System::lose_routes(const std::string &name)
{
    if (!checks_gateways) {
        return;
    }
    std::erase_if(gateways, [&](const auto &entry) { return entry.first.second == name; });
    std::erase_if(routes, [&](const auto &entry) {
        const std::string device = word_behind(entry.first, "dev");
        return device == name || !reaches(word_behind(entry.first, "via"), device);
    });
}

int System::route_add(const std::string &route)
{
    if (!reaches(word_behind(route, "via"), word_behind(route, "dev"))) {
        return -1;
    }
    if (std::none_of(routes.begin(), routes.end(),
                     [&](const auto &entry) { return same_route(entry.first, route); })) {
        routes.try_emplace(route);
    }
    return 0;
}

int System::route_del(const std::string &route)
{
    return std::erase_if(routes, [&](const auto &entry) { return same_route(entry.first, route); }) != 0 ? 0
                                                                                                         : -1;
}

} // namespace seam
