#include "netintf/statist.h"

#include "core/bus_handlers.h"
#include "core/log.h"
#include "core/result.h"
#include "core/scope.h"
#include "netintf/registry.h"
#include "netintf/reply.h"

#include <charconv>
#include <libubus.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

namespace {

constexpr uint64_t rate_divisor = 3; // seconds; fixed, not measured
constexpr int header_lines = 2;
constexpr int counter_digits = 20; // of the highest 64-bit number

// The numbers of a line: received bytes come first, sent bytes ninth; those behind are not needed.
constexpr int rx_bytes_number = 0;
constexpr int tx_bytes_number = 8;
constexpr int number_count = 9;

struct uloop_timeout statist_timeout;

// Advances by two for each run, so that tools see that sampling runs.
void debug_counter_advance()
{
    if (g_netd_dbg_shm != nullptr) {
        uint32_t *counter = g_netd_dbg_shm + netdbg_counter_offset / sizeof(uint32_t);
        uint64_t value = 0;
        memcpy(&value, counter, sizeof(value));
        ++value;
        memcpy(counter, &value, sizeof(value));
    }
}

// A missing number keeps the previous line's value.
void numbers_read(const char *text, uint64_t (&numbers)[number_count])
{
    for (uint64_t &number : numbers) {
        char *end = nullptr;
        const uint64_t value = strtoull(text, &end, 10);
        if (end == text) {
            return;
        }
        number = value;
        text = end;
    }
}

void line_sample(char *line, uint64_t (&numbers)[number_count])
{
    char *rest = nullptr;
    netintf_entry *entry = netintf_entry_find_byname(strtok_r(line, " \t:", &rest));
    if (entry == nullptr) {
        return;
    }
    entry->rx_bytes_prev = entry->rx_bytes;
    entry->tx_bytes_prev = entry->tx_bytes;
    // Where the name ends the line, some C libraries leave nothing behind it, not even an empty text.
    numbers_read(rest != nullptr ? rest : "", numbers);
    entry->rx_bytes = numbers[rx_bytes_number];
    entry->tx_bytes = numbers[tx_bytes_number];
    entry->rx_rate = (entry->rx_bytes - entry->rx_bytes_prev) / rate_divisor;
    entry->tx_rate = (entry->tx_bytes - entry->tx_bytes_prev) / rate_divisor;
}

void table_sample(FILE *table)
{
    uint64_t numbers[number_count] = {};
    for (int line_number = 1;; ++line_number) {
        // On purpose each line is read into a fresh buffer, which is freed with it.
        char *line = nullptr;
        size_t size = 0;
        const ssize_t length = getline(&line, &size, table);
        const scope_release line_free(line, free);
        if (length < 0) {
            return;
        }
        if (line_number > header_lines) {
            line_sample(line, numbers);
        }
    }
}

int counter_add(const char *key, uint64_t value)
{
    char text[counter_digits + 1] = {};
    std::to_chars(text, text + counter_digits, value);
    return netintf_bmsg_add_string(key, text);
}

// False when memory is exhausted; the message is then of no use.
bool interface_add(const netintf_entry *entry)
{
    void *array = blobmsg_open_array(&netintf_reply, entry->name);
    if (array == nullptr || netintf_bmsg_add_string(nullptr, entry->name) != 0 ||
        counter_add("rx_bytes", entry->rx_bytes) != 0 || counter_add("tx_bytes", entry->tx_bytes) != 0 ||
        counter_add("avg_rx_bytes", entry->rx_rate) != 0 ||
        counter_add("avg_tx_bytes", entry->tx_rate) != 0) {
        return false;
    }
    blobmsg_close_array(&netintf_reply, array);
    return true;
}

} // namespace

void netintf_statist_start()
{
    statist_timeout.cb = netintf_statist_timer;
    uloop_timeout_set(&statist_timeout, statist_interval);
}

void netintf_statist_timer(struct uloop_timeout *timeout)
{
    debug_counter_advance();
    if (FILE *table = fopen("/proc/net/dev", "rt"); table != nullptr) {
        // The kernel gives a page at a time; the C library would ask for a quarter of it.
        char buffer[4096];
        const scope_release closer(table, fclose);
        setvbuf(table, buffer, _IOFBF, sizeof(buffer));
        table_sample(table);
    }
    uloop_timeout_set(timeout, statist_interval);
    debug_counter_advance();
}

int netintf_ubus_statist(struct ubus_context *ctx, struct ubus_object *, struct ubus_request_data *req,
                         const char *, struct blob_attr *)
{
    if (blob_buf_init(&netintf_reply, BLOBMSG_TYPE_TABLE) != 0) {
        return status_unknown_error;
    }
    for (uint32_t port = 0; port < netintf_port_count; ++port) {
        for (const netintf_entry *entry : netintf_port_entries(netintf_port_head_get(port))) {
            // Repeats for ever on failure, on purpose: docs/behaviour.md, "statist asks for a link until it
            // gets an answer".
            uint32_t link = 0;
            while (netintf_link_get_byname(entry->name, &link) != rv_ok) {
            }
            if (entry->enable != 0 && link != 0 && !interface_add(entry)) {
                return status_unknown_error;
            }
        }
    }
    ubus_send_reply(ctx, req, netintf_reply.head);
    return status_ok;
}
