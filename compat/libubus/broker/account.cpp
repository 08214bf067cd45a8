#include "account.h"

#include <cstdint>
#include <cstdlib>
#include <sys/resource.h>

namespace broker {

namespace {

struct Budget {
    size_t Cost::*resource;
    size_t each; // of one user
    size_t all;  // of all users but root
};

constexpr size_t megabyte = 1 << 20;

Budget budgets[] = {
    {&Cost::connections, 32, 256},
    {&Cost::descriptors, 16, 128},
    // The largest message takes two: one where it is received, one where it waits.
    {&Cost::bytes, 3 * megabyte, 18 * megabyte},
    {&Cost::objects, 64, 512},
    {&Cost::types, 64, 512},
    {&Cost::subscriptions, 128, 1024},
};

list_head accounts = LIST_HEAD_INIT(accounts);
Cost used_by_all = {};

void limit_share(size_t Cost::*resource, size_t most)
{
    for (Budget &budget : budgets) {
        if (budget.resource == resource && budget.all > most) {
            budget.all = most;
        }
    }
}

Account *find_or_open(uid_t uid)
{
    Account *account;
    list_for_each_entry(account, &accounts, list)
    {
        if (account->uid == uid) {
            return account;
        }
    }
    account = static_cast<Account *>(calloc(1, sizeof(Account)));
    if (account != nullptr) {
        account->uid = uid;
        list_add_tail(&account->list, &accounts);
    }
    return account;
}

void close_unused(Account *account)
{
    if (account->used == Cost{}) {
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
        limit_share(&Cost::connections, descriptors / 4);
        limit_share(&Cost::descriptors, descriptors / 8);
    }
}

bool account_join(uid_t uid, Account **account)
{
    *account = nullptr;
    if (uid == 0) {
        return true;
    }
    Account *found = find_or_open(uid);
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

bool charge(Account *account, const Cost &cost)
{
    if (account == nullptr) {
        return true;
    }
    for (const Budget &budget : budgets) {
        const size_t amount = cost.*budget.resource;
        if (amount > 0 && (account->used.*budget.resource + amount > budget.each ||
                           used_by_all.*budget.resource + amount > budget.all)) {
            return false;
        }
    }
    for (const Budget &budget : budgets) {
        account->used.*budget.resource += cost.*budget.resource;
        used_by_all.*budget.resource += cost.*budget.resource;
    }
    return true;
}

void discharge(Account *account, const Cost &cost)
{
    if (account == nullptr) {
        return;
    }
    for (const Budget &budget : budgets) {
        account->used.*budget.resource -= cost.*budget.resource;
        used_by_all.*budget.resource -= cost.*budget.resource;
    }
    close_unused(account);
}

} // namespace broker
