#include "dhcp_recorder.h"

#include <array>
#include <cstdio>

namespace lab {

namespace {

constexpr size_t kept_pools = 1024;

constexpr std::array<blobmsg_policy, 9> add_policy = {{{"name", BLOBMSG_TYPE_STRING},
                                                       {"intf", BLOBMSG_TYPE_STRING},
                                                       {"ipstart", BLOBMSG_TYPE_STRING},
                                                       {"ipend", BLOBMSG_TYPE_STRING},
                                                       {"ipmask", BLOBMSG_TYPE_STRING},
                                                       {"route", BLOBMSG_TYPE_STRING},
                                                       {"dnsmajor", BLOBMSG_TYPE_STRING},
                                                       {"dnsminor", BLOBMSG_TYPE_STRING},
                                                       {"lease_time", BLOBMSG_TYPE_INT32}}};

} // namespace

DhcpRecorder::DhcpRecorder(std::string record_file) : path_(std::move(record_file))
{
    bus_object_.add_method("add", add_policy.data(), static_cast<int>(add_policy.size()),
                           [this](blob_attr *arguments, const auto &) { return add(arguments); });
    bus_object_.add_method("dump", nullptr, 0, [this](blob_attr *, const auto &reply) {
        Message message;
        dump(message.get());
        reply(message.head());
        return static_cast<int>(UBUS_STATUS_OK);
    });
    bus_object_.add_method("clear", nullptr, 0, [this](blob_attr *, const auto &) {
        pools_.clear();
        return static_cast<int>(UBUS_STATUS_OK);
    });
}

int DhcpRecorder::add(blob_attr *arguments)
{
    // Kept as it came, right or wrong: judging it is the reader's business.
    pools_.push_back(copy_blob(arguments));
    if (pools_.size() > kept_pools) {
        pools_.pop_front();
    }
    if (path_.empty()) {
        return UBUS_STATUS_OK;
    }
    FILE *file = fopen(path_.c_str(), "ae");
    char *line = blobmsg_format_json(arguments, true);
    const bool written = file != nullptr && line != nullptr && fprintf(file, "%s\n", line) > 0;
    free(line);
    if (file != nullptr && fclose(file) != 0) {
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    return written ? UBUS_STATUS_OK : UBUS_STATUS_UNKNOWN_ERROR;
}

void DhcpRecorder::dump(blob_buf *reply) const
{
    void *array = blobmsg_open_array(reply, "pools");
    for (const BlobCopy &pool : pools_) {
        blobmsg_add_field(reply, BLOBMSG_TYPE_TABLE, nullptr, blobmsg_data(pool.get()),
                          static_cast<unsigned>(blobmsg_data_len(pool.get())));
    }
    blobmsg_close_array(reply, array);
}

} // namespace lab
