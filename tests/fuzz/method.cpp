// Any message to any method of the bus, in process on the recorded platform. The registry is kept from call
// to call within one input.
//
// An input is text, a line for each step:
//   OBJECT.METHOD {JSON}   calls a method, as "intf.add {...}" or "route.del {...}"
//   patch OFFSET BYTE ...  overwrites bytes of the next message's content (hexadecimal), lengths included
//   fail CALL              the next method finds that this platform call fails
//   link PORT UP           a link event
//   board 2                begins again on the board with two CPU-side ports
//
// "statist" asks for each interface's link until it is answered; that wait is intended. Names that can never
// be answered (cut at their 31st character they may name no port) are looked for first, and the call is then
// left out.
#include "call.h"
#include "daemon_world.h"
#include "input.h"
#include "message.h"
#include "netintf/events.h"

extern "C" {
#include <libubox/blobmsg_json.h>
}

#include <algorithm>
#include <string>
#include <vector>

namespace {

constexpr size_t longest_session = 64;

struct Patch {
    size_t offset;
    uint8_t byte;
};

class Session {
public:
    explicit Session(bool two_cpu_ports) { fuzz::daemon_fresh(two_cpu_ports); }
    void step(std::string_view line);

private:
    void call(std::string_view name, const std::string &json);
    static bool links_are_answered();

    std::vector<Patch> patches_;
};

unsigned number(std::string_view text, int base)
{
    const std::string copy{text};
    return static_cast<unsigned>(strtoul(copy.c_str(), nullptr, base));
}

// The fields of a JSON text; none when it is no object.
seam::Message message_of(const std::string &json)
{
    seam::Message message;
    blob_buf parsed{};
    blob_buf_init(&parsed, 0);
    blobmsg_add_json_from_string(&parsed, json.c_str());
    blob_attr *attr;
    size_t left;
    blobmsg_for_each_attr(attr, parsed.head, left)
    {
        message.field(blobmsg_name(attr), blobmsg_type(attr),
                      {static_cast<const char *>(blobmsg_data(attr)), blobmsg_data_len(attr)});
    }
    blob_buf_free(&parsed);
    return message;
}

bool Session::links_are_answered()
{
    for (uint32_t port = 0; port < netintf_port_count; port++) {
        const netintf_entry *head = netintf_port_head_get(port);
        for (const netintf_entry *entry = head->next; entry != head; entry = entry->next) {
            uint32_t link = 0;
            if (netintf_link_get_byname(entry->name, &link) != 0) {
                return false;
            }
        }
    }
    return true;
}

void Session::call(std::string_view name, const std::string &json)
{
    const size_t dot = std::min(name.find('.'), name.size());
    const std::string method{name.substr(std::min(dot + 1, name.size()))};
    if (method == "statist" && !links_are_answered()) {
        return;
    }
    const seam::Message message = message_of(json);
    const size_t length = blob_len(message.head());
    for (const Patch &patch : patches_) {
        if (patch.offset < length) {
            static_cast<char *>(blob_data(message.head()))[patch.offset] = static_cast<char>(patch.byte);
        }
    }
    patches_.clear();
    // A name that is no method's is refused.
    seam::call_method("ivarode." + std::string{name.substr(0, dot)}, method, message);
    seam::demand_nothing();
    seam::trace_take();
    fuzz::daemon_check();
}

void Session::step(std::string_view line)
{
    fuzz::Input words(line);
    const std::string_view what = words.until(' ');
    if (what == "patch") {
        while (!words.empty() && patches_.size() < 16) {
            const unsigned offset = number(words.until(' '), 16);
            patches_.push_back({offset, static_cast<uint8_t>(number(words.until(' '), 16))});
        }
    } else if (what == "fail") {
        // A function's name and no more: patterns of a hostile kind can take for ever to match.
        const std::string name{words.rest()};
        seam::demand(1, name.substr(0, name.find_first_not_of("abcdefghijklmnopqrstuvwxyz_0123456789")), -1);
    } else if (what == "link") {
        const unsigned port = number(words.until(' '), 10);
        const nl_link_event event = {port, number(words.rest(), 10)};
        netevt_nl_link_event(&event);
        seam::trace_take();
        fuzz::daemon_check();
    } else {
        const std::string json{words.rest()};
        call(what, json.substr(0, json.find('\0')));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    constexpr std::string_view other_board = "board 2\n";
    const bool two_cpu_ports = input.rest().substr(0, other_board.size()) == other_board;
    Session session(two_cpu_ports);
    for (size_t steps = 0; steps < longest_session && !input.empty(); steps++) {
        session.step(input.until('\n'));
    }
    return 0;
}
