// Budgets of the users: limits of the resources that all clients of one user hold together. Root has no
// account and no limit.
#pragma once

#include <cstddef>
#include <libubox/list.h>
#include <sys/types.h>

namespace broker {

struct resource_cost {
    size_t connections = 0;
    size_t descriptors = 0; // that wait in a queue
    size_t bytes = 0;       // received in part, queued, or kept as text and signature
    size_t objects = 0;
    size_t types = 0;
    size_t subscriptions = 0; // to objects and to patterns of events

    bool operator==(const resource_cost &) const = default;
};

// Lives as long as anything is charged to it.
struct user_account {
    list_head list;
    uid_t uid;
    resource_cost used;
};

// Sets the share of all users together by the number of descriptors that this process may have.
void accounts_open();

// Charges a user's first or next connection. *account is null for root. False when a budget is used up or
// memory is missing.
bool account_join(uid_t uid, user_account **account);
// Both take null for root. charge is false, and nothing is charged, when a budget of the user or the share of
// all users does not allow it.
bool charge(user_account *account, const resource_cost &cost);
void discharge(user_account *account, const resource_cost &cost);

} // namespace broker
