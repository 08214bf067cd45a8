#include "world.h"

#include "check.h"
#include "files.h"

#include <array>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <pwd.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace fs = std::filesystem;

namespace lab {
namespace {

void mount_on(const char *type, const std::string &at, unsigned long flags, const char *options)
{
    check(mount(type, at.c_str(), type, flags, options), std::string("mounting ") + type + " on " + at);
}

// The machine's folder with a writable layer of the board's own above it.
void overlay_folder(const std::string &root, const std::string &folder)
{
    std::string layer = root + "/.layers/" + folder;
    make_dirs(layer + "/up");
    make_dirs(layer + "/work");
    make_dirs(root + "/" + folder);
    std::string options = "lowerdir=/" + folder + ",upperdir=" + layer + "/up,workdir=" + layer + "/work";
    check(mount("overlay", (root + "/" + folder).c_str(), "overlay", 0, options.c_str()),
          "laying a layer over /" + folder);
}

void show_programs(const std::string &root)
{
    for (const char *folder : {"usr", "bin", "sbin", "lib", "lib32", "lib64", "libx32"}) {
        std::string path = std::string("/") + folder;
        if (fs::is_symlink(path)) {
            check(symlink(fs::read_symlink(path).c_str(), (root + path).c_str()), path);
        } else if (fs::is_directory(path)) {
            overlay_folder(root, folder);
        }
    }
}

void make_device(const std::string &root, const std::string &name, unsigned major_number,
                 unsigned minor_number)
{
    std::string path = root + "/dev/" + name;
    if (mknod(path.c_str(), S_IFCHR | 0666, makedev(major_number, minor_number)) == 0) {
        check(chmod(path.c_str(), 0666), path);
        return;
    }
    // where making devices is forbidden, the machine's own one serves
    write_text(path, "");
    check(mount(("/dev/" + name).c_str(), path.c_str(), nullptr, MS_BIND, nullptr), "device " + name);
}

void make_dev(const std::string &root)
{
    make_dirs(root + "/dev/net");
    make_dirs(root + "/dev/shm", 01777);
    make_dirs(root + "/dev/pts");
    make_device(root, "null", 1, 3);
    make_device(root, "zero", 1, 5);
    make_device(root, "full", 1, 7);
    make_device(root, "random", 1, 8);
    make_device(root, "urandom", 1, 9);
    make_device(root, "tty", 5, 0);
    make_device(root, "net/tun", 10, 200);
    if (fs::exists("/dev/ppp")) {
        make_device(root, "ppp", 108, 0);
    }
    mount_on("devpts", root + "/dev/pts", 0, "newinstance,ptmxmode=0666,mode=620");
    check(symlink("pts/ptmx", (root + "/dev/ptmx").c_str()), "ptmx");
    check(symlink("/proc/self/fd", (root + "/dev/fd").c_str()), "fd");
    check(symlink("/var/log/console", (root + "/dev/console").c_str()), "console");
}

void add_user(const std::string &root, const std::string &name, const std::string &number)
{
    if (getpwnam(name.c_str()) == nullptr) {
        append_text(root + "/etc/passwd", name + ":x:" + number + ":" + number + "::/var:/bin/false\n");
        append_text(root + "/etc/group", name + ":x:" + number + ":\n");
    }
}

void make_etc(const std::string &root)
{
    for (const char *name :
         {"passwd", "group", "nsswitch.conf", "protocols", "services", "ethertypes", "ld.so.cache",
          "ld.so.conf", "ld.so.conf.d", "alternatives", "iproute2", "localtime"}) {
        copy_if_there(std::string("/etc/") + name, root + "/etc/" + name);
    }
    // the unprivileged users of a router's image, which the bus's access files name
    add_user(root, "daemon", "1");
    add_user(root, "network", "101");
    make_dirs(root + "/etc/config");
    make_dirs(root + "/etc/ppp/plugins");
    write_text(root + "/etc/hosts", "127.0.0.1 localhost\n");
    write_text(root + "/etc/resolv.conf", "");
    write_text(root + "/etc/ppp/options", "");
    write_text(root + "/etc/ppp/chap-secrets", "", 0600);
    write_text(root + "/etc/ppp/pap-secrets", "", 0600);
    check(symlink("/proc/self/mounts", (root + "/etc/mtab").c_str()), "mtab");
}

void make_own_dirs(const std::string &root)
{
    for (const char *path :
         {"/proc", "/sys", "/root", "/mnt", "/run/lab", "/run/ubus", "/run/lock", "/var/log", "/var/lib/misc",
          "/var/lib/dhcp", "/lib/ivarode", "/tmp/calmora/db"}) {
        make_dirs(root + path);
    }
    make_dirs(root + "/tmp", 01777);
    make_dirs(root + "/var/tmp", 01777);
    check(symlink("/run", (root + "/var/run").c_str()), "/var/run");
    check(symlink("/run/lock", (root + "/var/lock").c_str()), "/var/lock");
}

void bind_read_only(const std::string &from, const std::string &at)
{
    make_dirs(at);
    check(mount(from.c_str(), at.c_str(), nullptr, MS_BIND, nullptr), "showing " + from);
    check(mount(nullptr, at.c_str(), nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr),
          "making " + from + " read-only");
}

// Only what the board runs, where an image has it: a build folder may hold much else.
void copy_programs(const std::string &programs)
{
    for (const char *name :
         {"ivarode", "ivarodectl", "ivarode-plan", "ubusd", "vswitch", "lab-siblings", "lab-agent"}) {
        copy_if_there(programs + "/bin/" + name, std::string("/usr/sbin/") + name);
    }
    // The supervisor's helper, where a router has it.
    copy_if_there(programs + "/bin/lab-jail", "/sbin/ujail");
    for (const char *name : {"ubus", "uci"}) {
        copy_if_there(programs + "/bin/" + name, std::string("/usr/bin/") + name);
    }
    for (const auto &entry : fs::directory_iterator(programs + "/lib")) {
        if (entry.path().extension() == ".so") {
            copy_tree(entry.path(), "/usr/lib/" + entry.path().filename().string());
        }
    }
    copy_if_there(programs + "/lib/ivarode-plan", "/usr/lib/ivarode-plan");
}

// Copied from within the new root, where every link means a place of the board's own.
void take_over(const std::string &from, const std::function<void(const std::string &)> &copy)
{
    copy(from);
    check(umount2(from.c_str(), MNT_DETACH), from);
    check(rmdir(from.c_str()), from);
}

} // namespace

void build_world(const std::string &root, const std::string &overlay, const std::string &programs)
{
    check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "private mounts");
    mount_on("tmpfs", root, MS_NOSUID, "mode=755");
    show_programs(root);
    make_own_dirs(root);
    make_dev(root);
    make_etc(root);
    bind_read_only(overlay, root + "/.files");
    bind_read_only(programs, root + "/.programs");
    mount_on("proc", root + "/proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
    mount_on("sysfs", root + "/sys", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
    check(chroot(root.c_str()), "entering " + root);
    check(chdir("/"), "entering " + root);
    take_over("/.programs", copy_programs);
    take_over("/.files", [](const std::string &from) { copy_tree(from, ""); });
}

void prepare_host_files()
{
    check(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "private mounts");
    for (const char *path : {"/tmp", "/run", "/var", "/etc/ppp"}) {
        mount_on("tmpfs", path, MS_NOSUID | MS_NODEV, nullptr);
    }
    for (const char *path :
         {"/var/log", "/var/lib/misc", "/var/lib/dhcp", "/var/tmp", "/run/lock", "/etc/ppp/plugins"}) {
        make_dirs(path);
    }
    check(chmod("/tmp", 01777), "/tmp");
    check(symlink("/run", "/var/run"), "/var/run");
    write_text("/etc/ppp/options", "");
    write_text("/etc/ppp/chap-secrets", "", 0600);
    write_text("/etc/ppp/pap-secrets", "", 0600);
    check(umount2("/sys", MNT_DETACH), "/sys");
    mount_on("sysfs", "/sys", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
}

} // namespace lab
