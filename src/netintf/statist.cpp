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
constexpr int numbers_between = 7;   // between a device's bytes received, its first number, and those sent
constexpr int header_lines = 2;
constexpr int counter_digits = 20;          // of the highest 64-bit number
constexpr size_t debug_counter_offset = 16; // bytes into the debug area

struct uloop_timeout statist_timeout;

// Tools see from this counter that sampling runs: it advances by two for each run.
void debug_counter_advance()
{
    if (g_netd_dbg_shm != nullptr) {
        uint32_t *counter = g_netd_dbg_shm + debug_counter_offset / sizeof(uint32_t);
        uint64_t value = 0;
        memcpy(&value, counter, sizeof(value));
        value++;
        memcpy(counter, &value, sizeof(value));
    }
}

// What the table says of a device.
struct byte_counts {
    uint64_t rx;
    uint64_t tx;
};

// Takes the next number of a text; where there is none, the value stays. The text behind it, or null.
const char *number_take(const char *text, uint64_t &value)
{
    char *end = nullptr;
    const uint64_t number = strtoull(text, &end, 10);
    if (end == text) {
        return nullptr;
    }
    value = number;
    return end;
}

// Passes over what number_take would take. Most numbers of the table are passed over.
const char *number_pass(const char *text)
{
    while (*text == ' ' || (*text >= '\t' && *text <= '\r')) {
        text++;
    }
    if (*text == '+' || *text == '-') {
        text++;
    }
    const char *digits = text;
    while (*text >= '0' && *text <= '9') {
        text++;
    }
    return text != digits ? text : nullptr;
}

// Counts that the text does not hold keep the values of the line before.
void counts_read(const char *text, byte_counts &counts)
{
    text = number_take(text, counts.rx);
    for (int number = 0; number < numbers_between && text != nullptr; number++) {
        text = number_pass(text);
    }
    if (text != nullptr) {
        number_take(text, counts.tx);
    }
}

void line_sample(char *line, netintf_finder &finder, byte_counts &counts)
{
    char *rest = nullptr;
    const char *device = strtok_r(line, " \t:", &rest);
    netintf_entry *entry = finder.find(device);
    if (entry == nullptr) {
        return;
    }
    entry->rx_bytes_prev = entry->rx_bytes;
    entry->tx_bytes_prev = entry->tx_bytes;
    counts_read(rest, counts);
    entry->rx_bytes = counts.rx;
    entry->tx_bytes = counts.tx;
    entry->rx_rate = (entry->rx_bytes - entry->rx_bytes_prev) / rate_divisor;
    entry->tx_rate = (entry->tx_bytes - entry->tx_bytes_prev) / rate_divisor;
}

void table_sample(FILE *table)
{
    netintf_finder finder;
    byte_counts counts = {};
    for (int number = 1;; number++) {
        char *line = nullptr;
        size_t size = 0;
        const ssize_t length = getline(&line, &size, table);
        const scope_release line_free(line, free);
        if (length < 0) {
            return;
        }
        if (number > header_lines) {
            line_sample(line, finder, counts);
        }
    }
}

void add_counter(const char *key, uint64_t value)
{
    char text[counter_digits + 1] = {};
    std::to_chars(text, text + counter_digits, value);
    netintf_bmsg_add_string(key, text);
}

void add_interface(const netintf_entry *entry)
{
    void *array = blobmsg_open_array(&netintf_reply, entry->name);
    netintf_bmsg_add_string(nullptr, entry->name);
    add_counter("rx_bytes", entry->rx_bytes);
    add_counter("tx_bytes", entry->tx_bytes);
    add_counter("avg_rx_bytes", entry->rx_rate);
    add_counter("avg_tx_bytes", entry->tx_rate);
    blobmsg_close_array(&netintf_reply, array);
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
        // The kernel gives a page at a time; without this, the C library asks for a quarter of it.
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
    blob_buf_init(&netintf_reply, BLOBMSG_TYPE_TABLE);
    for (uint32_t port = 0; port < netintf_port_count; port++) {
        const netintf_entry *head = netintf_port_head_get(port);
        for (const netintf_entry *entry = head->next; entry != nullptr && entry != head;
             entry = entry->next) {
            // Asked until it is answered: an interface is never left out for want of an answer.
            uint32_t link = 0;
            while (netintf_link_get_byname(entry->name, &link) != rv_ok) {
            }
            if (entry->enable != 0 && link != 0) {
                add_interface(entry);
            }
        }
    }
    ubus_send_reply(ctx, req, netintf_reply.head);
    return status_ok;
}
