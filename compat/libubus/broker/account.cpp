#include "account.h"

#include <cstdint>
#include <cstdlib>
#include <sys/resource.h>

namespace broker {

namespace {

struct resource_budget {
    size_t resource_cost::*resource;
    size_t each; // of one user
    size_t all;  // of all users but root
};

constexpr size_t megabyte = 1 << 20;

resource_budget budgets[] = {
    {&resource_cost::connections, 32, 256},
    {&resource_cost::descriptors, 16, 128},
    // The largest message takes two: one where it is received, one where it waits.
    {&resource_cost::bytes, 3 * megabyte, 18 * megabyte},
    {&resource_cost::objects, 64, 512},
    {&resource_cost::types, 64, 512},
    {&resource_cost::subscriptions, 128, 1024},
};

list_head accounts = LIST_HEAD_INIT(accounts);
resource_cost used_by_all = {};

void limit_share(size_t resource_cost::*resource, size_t most)
{
    for (resource_budget &budget : budgets) {
        if (budget.resource == resource && budget.all > most) {
            budget.all = most;
        }
    }
}

user_account *find_or_open(uid_t uid)
{
    user_account *account;
    list_for_each_entry(account, &accounts, list)
    {
        if (account->uid == uid) {
            return account;
        }
    }
    account = static_cast<user_account *>(calloc(1, sizeof(user_account)));
    if (account != nullptr) {
        account->uid = uid;
        list_add_tail(&account->list, &accounts);
    }
    return account;
}

void close_unused(user_account *account)
{
    if (account->used == resource_cost{}) {
        list_del(&account->list);
        free(account);
    }
}

} // namespace

void accounts_open()
{
    rlimit files = {};
    if (getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < SIZE_MAX) {
        const auto descriptors = static_cast<size_t>(files.rlim_cur);
        // A connection may hold a second descriptor, which came with a message that is not complete yet.
        limit_share(&resource_cost::connections, descriptors / 4);
        limit_share(&resource_cost::descriptors, descriptors / 8);
    }
}

bool account_join(uid_t uid, user_account **account)
{
    *account = nullptr;
    if (uid == 0) {
        return true;
    }
    user_account *found = find_or_open(uid);
    if (found == nullptr) {
        return false;
    }
    if (!charge(found, {.connections = 1})) {
        close_unused(found);
        return false;
    }
    *account = found;
    return true;
}

bool charge(user_account *account, const resource_cost &cost)
{
    if (account == nullptr) {
        return true;
    }
    for (const resource_budget &budget : budgets) {
        const size_t amount = cost.*budget.resource;
        if (amount > 0 && (account->used.*budget.resource + amount > budget.each ||
                           used_by_all.*budget.resource + amount > budget.all)) {
            return false;
        }
    }
    for (const resource_budget &budget : budgets) {
        account->used.*budget.resource += cost.*budget.resource;
        used_by_all.*budget.resource += cost.*budget.resource;
    }
    return true;
}

void discharge(user_account *account, const resource_cost &cost)
{
    if (account == nullptr) {
        return;
    }
    for (const resource_budget &budget : budgets) {
        account->used.*budget.resource -= cost.*budget.resource;
        used_by_all.*budget.resource -= cost.*budget.resource;
    }
    close_unused(account);
}

} // namespace broker
