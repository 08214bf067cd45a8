// Reading plain attributes by id. The last of several with one id wins.
#include "exported.h"

namespace {

bool acceptable(blob_attr *attr, const blob_attr_info *info)
{
    if (info->type < BLOB_ATTR_LAST &&
        !blob_check_type(blob_data(attr), static_cast<unsigned int>(blob_len(attr)),
                         static_cast<int>(info->type))) {
        return false;
    }
    // These two bounds include the header; 0 is no bound.
    if (info->minlen && blob_raw_len(attr) < info->minlen) {
        return false;
    }
    if (info->maxlen && blob_raw_len(attr) > info->maxlen) {
        return false;
    }
    return info->validate == nullptr || info->validate(info, attr);
}

} // namespace

bool blob_check_type(const void *ptr, unsigned int len, int type)
{
    switch (type) {
    case BLOB_ATTR_UNSPEC:
    case BLOB_ATTR_NESTED:
    case BLOB_ATTR_BINARY:
        return true;
    case BLOB_ATTR_STRING:
        return len >= 1 && static_cast<const char *>(ptr)[len - 1] == 0;
    case BLOB_ATTR_INT8:
        return len == sizeof(uint8_t);
    case BLOB_ATTR_INT16:
        return len == sizeof(uint16_t);
    case BLOB_ATTR_INT32:
        return len == sizeof(uint32_t);
    case BLOB_ATTR_INT64:
        return len == sizeof(uint64_t);
    case BLOB_ATTR_DOUBLE:
        return len >= sizeof(double);
    default:
        return false;
    }
}

int blob_parse(blob_attr *attr, blob_attr **data, const blob_attr_info *info, int max)
{
    blob_attr *pos;
    size_t rem;
    int found = 0;

    for (int i = 0; i < max; i++) {
        data[i] = nullptr;
    }
    blob_for_each_attr(pos, attr, rem)
    {
        const int id = static_cast<int>(blob_id(pos));
        if (id >= max || blob_raw_len(pos) < sizeof(blob_attr)) {
            continue;
        }
        if (info != nullptr && !acceptable(pos, &info[id])) {
            continue;
        }
        if (data[id] == nullptr) {
            found++;
        }
        data[id] = pos;
    }
    return found;
}

int blob_parse_untrusted(blob_attr *attr, size_t attr_len, blob_attr **data, const blob_attr_info *info,
                         int max)
{
    if (attr_len < sizeof(blob_attr) || blob_raw_len(attr) < sizeof(blob_attr) ||
        attr_len < blob_raw_len(attr)) {
        return 0;
    }
    return blob_parse(attr, data, info, max);
}
