#include "plan/options.h"

#include "text.h"

#include <arpa/inet.h>
#include <cstdio>
#include <getopt.h>

namespace seam::plan {

const char *const help_text =
    "Usage: ivarode-plan [--board FILE] [--config DIR] [--daemon FILE] [--from clean|now|FILE]\n"
    "                    [--diff | --leftovers | [--call 'OBJECT METHOD JSON'] [--link PORT=up|down]\n"
    "                    [--address A]] [--json | --quiet]\n"
    "Runs the daemon on a simulated router, and shows what it would do. Nothing is changed, no wait takes "
    "time,\n"
    "and no privilege is needed.\n"
    "\n"
    "  --board FILE    the board file (default: /etc/board.json)\n"
    "  --config DIR    the folder with lan_intf, wan_intf and route_config (default: /etc/config)\n"
    "  --daemon FILE   the daemon (default: ivarode beside this program)\n"
    "  --from clean    start on a router that was just switched on (default)\n"
    "  --from now      start on this router as it is; only what changes something is shown\n"
    "  --from FILE     start on the router of these facts, one a line, as in \"end\" of --json; a slash is "
    "in "
    "the\n"
    "                  name\n"
    "  --diff          what is otherwise on this router than a clean start would make it, and why that may "
    "be\n"
    "  --leftovers     what has to go before a start over this router ends as a clean one, one a line\n"
    "\n"
    "What happens after the start, as often as wanted, in the order given:\n"
    "  --call 'OBJECT METHOD JSON'   a request over the bus; without JSON an empty one\n"
    "  --link PORT=up|down           the cable of a front port, 0 to 4; at the start no port has link\n"
    "  --address A                   an IPv4 address that the kernel has got\n"
    "\n"
    "  --json          the plan for programs\n"
    "  --quiet         only what is wrong\n"
    "  --help          this text\n"
    "\n"
    "Exit status: 0 as wanted, 1 the daemon would end or refuse, 2 wrong usage or unreadable input,\n"
    "3 ports meet that should not, 4 --diff or --leftovers found something.\n";

void complain(const std::string &text)
{
    std::fprintf(stderr, "ivarode-plan: %s\n", text.c_str());
}

namespace {

constexpr unsigned front_ports = 5;

bool refuse(const std::string &text)
{
    complain(text + "; --help tells what there is");
    return false;
}

bool add_call(const std::string &text, Options &options)
{
    const std::vector<std::string> all = words(text);
    if (all.size() < 2) {
        return refuse("--call wants an object, a method and a message in JSON: \"" + text + "\"");
    }
    // The message begins behind the method, wherever the blanks are.
    const size_t method_at = text.find(all[1], text.find(all[0]) + all[0].size());
    const size_t message_at = text.find_first_not_of(" \t\n", method_at + all[1].size());
    Step step{Step::Kind::call, text, all[0], all[1]};
    step.message = message_at == text.npos ? "{}" : text.substr(message_at);
    options.steps.push_back(step);
    return true;
}

bool add_link(const std::string &text, Options &options)
{
    const std::vector<std::string> both = parts(text, "=");
    const bool is_port = both[0].size() == 1 && both[0][0] >= '0' && both[0][0] < '0' + char{front_ports};
    if (both.size() != 2 || !is_port || (both[1] != "up" && both[1] != "down")) {
        return refuse("--link wants a front port, 0 to 4, and up or down: \"" + text + "\"");
    }
    Step step{Step::Kind::link, "link of port " + both[0] + " " + both[1]};
    step.port = static_cast<unsigned>(both[0][0] - '0');
    step.up = both[1] == "up";
    options.steps.push_back(step);
    return true;
}

bool add_address(const std::string &text, Options &options)
{
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) {
        return refuse("--address wants an IPv4 address: \"" + text + "\"");
    }
    Step step{Step::Kind::address, "new address " + text};
    step.address = ntohl(address.s_addr);
    options.steps.push_back(step);
    return true;
}

bool set_from(const std::string &text, Options &options)
{
    options.from_now = text == "now";
    options.from_file = text.find('/') == text.npos ? "" : text;
    return text == "clean" || text == "now" || !options.from_file.empty() ||
           refuse("--from wants clean, now, or a file with a slash in its name: \"" + text + "\"");
}

} // namespace

bool read_options(int argc, char **argv, Options &options)
{
    static const option known[] = {
        {"board", required_argument, nullptr, 'b'},
        {"config", required_argument, nullptr, 'c'},
        {"daemon", required_argument, nullptr, 'd'},
        {"from", required_argument, nullptr, 'f'},
        {"call", required_argument, nullptr, 'C'},
        {"link", required_argument, nullptr, 'l'},
        {"address", required_argument, nullptr, 'a'},
        {"json", no_argument, nullptr, 'j'},
        {"quiet", no_argument, nullptr, 'q'},
        {"help", no_argument, nullptr, 'h'},
        {"diff", no_argument, nullptr, 'D'},
        {"leftovers", no_argument, nullptr, 'L'},
        {nullptr, 0, nullptr, 0},
    };
    opterr = 0;
    bool good = true;
    for (int got = 0; good && (got = getopt_long(argc, argv, ":", known, nullptr)) != -1;) {
        const std::string value = optarg == nullptr ? "" : optarg;
        switch (got) {
        case 'b':
            options.board = value;
            break;
        case 'c':
            options.config = value;
            break;
        case 'd':
            options.daemon = value;
            break;
        case 'f':
            good = set_from(value, options);
            break;
        case 'C':
            good = add_call(value, options);
            break;
        case 'l':
            good = add_link(value, options);
            break;
        case 'a':
            good = add_address(value, options);
            break;
        case 'D':
            options.diff = true;
            break;
        case 'L':
            options.leftovers = true;
            break;
        case 'j':
            options.json = true;
            break;
        case 'q':
            options.quiet = true;
            break;
        case 'h':
            options.help = true;
            break;
        case ':':
            good = refuse("a value is missing behind \"" + plain(argv[optind - 1]) + "\"");
            break;
        default:
            good = refuse("unknown option \"" + plain(argv[optind - 1]) + "\"");
            break;
        }
    }
    if (good && optind < argc) {
        return refuse("unknown argument \"" + plain(argv[optind]) + "\"");
    }
    if (good && (options.diff || options.leftovers) && (options.from_now || !options.steps.empty())) {
        return refuse(std::string{options.diff ? "--diff" : "--leftovers"} +
                      " compares with a clean start: it takes no steps, and no --from but a file");
    }
    if (good && options.leftovers && (options.diff || options.json || options.quiet)) {
        return refuse("--leftovers writes lines for programs: it takes no --diff, --json or --quiet");
    }
    if (good && options.json && options.quiet) {
        return refuse("--json and --quiet exclude each other");
    }
    return good;
}

} // namespace seam::plan
