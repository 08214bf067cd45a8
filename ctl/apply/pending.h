// A configuration that was applied and not yet confirmed, as folders below /etc/ivarode, where a power cut
// leaves them:
//
//   backup.new   the old files, being written: means nothing
//   backup       the old files: the new ones in /etc/config wait to be confirmed
//   rollback     the same folder under another name: the old files are on their way back
//   backup.old   on its way out: means nothing
//
// One rename leads from each to the next. The way back renames the files too, so it needs no room on the
// disk.
//
// Results: 0 or an errno value.
#pragma once

#include <cstdint>

namespace ctl {

constexpr const char *config_folder = "/etc/config";

enum class change { none, waits, goes_back };

change pending_change();

// Keeps the configuration that the daemon was started with. The init script has put it into a folder of the
// system's run-time state.
int keep_backup(int64_t until_s);
// Whether /etc/config differs from it; ENOENT where none was put there.
int compare_with_running(bool *differs);

// Seconds since the machine's start. A time of another start is over.
int64_t seconds_since_boot();
int set_deadline(int64_t until_s);
// 0 or less when it is over.
int64_t seconds_left();
bool is_of_this_boot();

// Each may be repeated after any cut.
int put_back();
int forget_backup();

} // namespace ctl
