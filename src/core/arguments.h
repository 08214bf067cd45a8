// The arguments of a bus request.
//
// A handler names in its order what must be there. The first missing thing is reported and decides the
// status; after it nothing is reported. Fields and texts lie in the message and are valid only while its
// handler runs.
#pragma once

#include "core/policies.h"
#include "core/result.h"
#include "platform/bus.h"

#include <initializer_list>

class argument_list {
public:
    // A field, or null when it is missing or of another type.
    struct blob_attr *operator[](size_t field) const { return fields_[field]; }

    // The text of a field that may be missing, or null.
    const char *text(size_t field) const;

    // The text of a required field; null after a complaint. The bus library gives every present field a text;
    // the complaint about a null one is part of the methods all the same.
    const char *text(size_t field, const char *complaint, bus_status status = status_invalid_argument);

    // Complains unless all of these fields are there.
    void require(std::initializer_list<size_t> fields, const char *complaint);

    // status_ok, or that of the first complaint.
    bus_status status() const { return status_; }

protected:
    explicit argument_list(struct blob_attr **fields) : fields_(fields) {}

private:
    void complain(const char *complaint, bus_status status);

    struct blob_attr **fields_;
    bus_status status_ = status_ok;
};

// The fields of a message as its policy has them.
template <size_t N> class arguments : public argument_list {
public:
    arguments(const policy_table<N> &policy, struct blob_attr *msg) : argument_list(parsed_)
    {
        blobmsg_parse(policy.fields, policy.count, parsed_, blob_data(msg),
                      static_cast<unsigned>(blob_len(msg)));
    }

private:
    struct blob_attr *parsed_[N];
};

// The texts of an array field, at most Capacity of them, in their order.
template <int Capacity> class name_list {
public:
    // 0, or non-zero for a field that is missing or holds something else than texts.
    int read(struct blob_attr *field) { return ubuslib_bmsg_strlist_get(field, names_, Capacity); }
    // The first name, or null for an empty array.
    const char *first() const { return names_[0]; }
    const char *const *begin() const { return names_; }
    const char *const *end() const
    {
        const char *const *name = names_;
        while (name != names_ + Capacity && *name != nullptr) {
            ++name;
        }
        return name;
    }

private:
    char *names_[Capacity] = {};
};
