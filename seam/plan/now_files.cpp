// Rows of the WANs, chains of the firewall and clients of the supervisor.

#include "../../libsys/bus_call.h"
#include "../../libsys/command.h"
#include "../../libsys/internal.h"
#include "plan/now.h"
#include "plan/options.h"
#include "text.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <memory>

namespace seam::plan {

namespace {

constexpr const char *row_folder = "/var/run/ivarode/wan";
constexpr const char *row_keys[] = {"proto", "ipaddr", "netmask", "gateway", "addr4", "addr5"};
constexpr const char *tables[] = {"mangle", "nat", "filter"};
constexpr const char *services[] = {"dhcp", "pppoe"};

struct FolderClose {
    void operator()(DIR *folder) const { closedir(folder); }
};

System::Row row_in(const std::string &text)
{
    System::Row row;
    for (const std::string &line : parts(text, "\n")) {
        for (size_t i = 0; i < row.size(); ++i) {
            if (line.starts_with(row_keys[i] + std::string{"="})) {
                row[i] = line.substr(line.find('=') + 1);
            }
        }
    }
    return row;
}

// "-N CHAIN" and "-A CHAIN RULE". Chains of iptables itself are there from their first rule on.
void take_line(System &system, const std::string &table, const std::string &line)
{
    const std::vector<std::string> all = words(line);
    if (all.size() < 2) {
        return;
    }
    if (all[0] == "-N") {
        system.chains.try_emplace({table, all[1]});
    } else if (all[0] == "-A") {
        auto &rules = system.chains.try_emplace({table, all[1]}).first->second;
        rules.push_back(line.substr(line.find(all[1]) + all[1].size() + 1));
    }
}

blob_attr *field(blob_attr *table, const char *name)
{
    blob_attr *member = nullptr;
    size_t rest = 0;
    if (table != nullptr) {
        blobmsg_for_each_attr(member, table, rest)
        {
            if (name == std::string{blobmsg_name(member)}) {
                return member;
            }
        }
    }
    return nullptr;
}

std::string pid_file_in(const std::string &line)
{
    const std::vector<std::string> all = words(line);
    for (size_t i = 0; i + 1 < all.size(); ++i) {
        if (all[i] == "-p") {
            return all[i + 1];
        }
    }
    return {};
}

// A word as it stands in a command line that the platform library splits.
std::string as_word(const std::string &text)
{
    if (!text.empty() && text.find_first_of(" \t\n\"'") == text.npos) {
        return text;
    }
    std::string out = "\"";
    for (const char c : text) {
        out += c == '"' || c == '\\' ? std::string{'\\', c} : std::string{c};
    }
    return out + '"';
}

void take_instance(System &system, const char *service, blob_attr *instance)
{
    blob_attr *word = nullptr;
    size_t rest = 0;
    std::string line;
    blob_attr *command = field(instance, "command");
    if (command == nullptr) {
        return;
    }
    blobmsg_for_each_attr(word, command, rest)
    {
        line += (line.empty() ? "" : " ") + as_word(blobmsg_get_string(word));
    }
    system.clients[{service, blobmsg_name(instance)}] = line;
    if (const std::string file = pid_file_in(line); !file.empty()) {
        system.pids[file] = std::atoi(file_text(file).value_or("0").c_str());
    }
}

void take_services(ubus_request *request, int /*type*/, blob_attr *answer)
{
    System &system = *static_cast<System *>(request->priv);
    blob_attr *service = nullptr;
    size_t rest = blob_len(answer);
    __blob_for_each_attr(service, static_cast<blob_attr *>(blob_data(answer)), rest)
    {
        for (const char *known : services) {
            blob_attr *instances = field(service, "instances");
            if (known != std::string{blobmsg_name(service)} || instances == nullptr) {
                continue;
            }
            blob_attr *instance = nullptr;
            size_t left = 0;
            blobmsg_for_each_attr(instance, instances, left)
            {
                take_instance(system, known, instance);
            }
        }
    }
}

} // namespace

int read_rows(System &system)
{
    const std::unique_ptr<DIR, FolderClose> folder{opendir(row_folder)};
    if (!folder) {
        return errno == ENOENT ? 0 : errno;
    }
    while (const dirent *entry = readdir(folder.get())) {
        const std::string name = entry->d_name;
        if (name[0] != '.') {
            system.rows[name] = row_in(file_text(std::string{row_folder} + "/" + name).value_or(""));
        }
    }
    return 0;
}

int read_chains(System &system)
{
    for (const char *table : tables) {
        libsys::argument_list command;
        for (const char *word : {"iptables", "-w", "-t", table, "-S"}) {
            if (const int error = command.add(word)) {
                return error;
            }
        }
        libsys::text listing;
        int status = 0;
        if (const int error = libsys::run(command, libsys::capture::output, &listing, &status)) {
            return error;
        }
        if (status != 0) {
            return EIO;
        }
        for (const std::string &line : parts(listing.get(), "\n")) {
            take_line(system, table, line);
        }
    }
    return 0;
}

int read_clients(System &system)
{
    return libsys::call_bus("service", "list", nullptr, take_services, &system) == 0 ? 0 : ECONNREFUSED;
}

bool read_now(Inputs &inputs, Now &now)
{
    struct Part {
        const char *what;
        int error;
    };
    System &system = inputs.world.system;
    for (const auto &[what, error] :
         {Part{"the kernel's devices, routes and rules", read_kernel(system, now)},
          Part{"the chains", read_chains(system)}, Part{"the rows of the WANs", read_rows(system)},
          Part{"the clients, from the supervisor", read_clients(system)},
          Part{"the switch behind eth0", read_switch(inputs.world.hardware, now)}}) {
        if (error != 0) {
            complain(std::string{what} + ": " + strerror(error));
            return false;
        }
    }
    return true;
}

} // namespace seam::plan
