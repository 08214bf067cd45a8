#include "core/arguments.h"

#include "core/log.h"

const char *argument_list::text(size_t field) const
{
    return blobmsg_get_string(fields_[field]);
}

const char *argument_list::text(size_t field, const char *complaint, bus_status status)
{
    const char *value = text(field);
    if (value == nullptr) {
        complain(complaint, status);
    }
    return value;
}

void argument_list::require(std::initializer_list<size_t> fields, const char *complaint)
{
    for (const size_t field : fields) {
        if (fields_[field] == nullptr) {
            complain(complaint, status_invalid_argument);
        }
    }
}

void argument_list::complain(const char *complaint, bus_status status)
{
    if (status_ == status_ok) {
        NET_ERROR("%s", complaint);
        status_ = status;
    }
}
