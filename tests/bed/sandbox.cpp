// vimbra-sandbox: runs one command in a machine of its own.
//
// The command gets private mount, network, IPC, UTS and process namespaces: a fresh /proc,
// throw-away /tmp, /run, /etc and /dev (without a /dev/log, so that a test can serve it), a network
// with nothing but its loopback, no System V objects of others. Nothing of it survives the command,
// nothing of the command survives the launcher. Root needs no help for this; an ordinary user gets
// it through a user namespace in which he is root.
//
//     vimbra-sandbox [--keep DIR]... [--] COMMAND [ARGUMENT]...
//
// A directory that the throw-away ones would hide (a build tree under /tmp) stays reachable at its
// own path: the command's, the current one, and every one given with --keep. The exit status, or
// the signal, is the command's; 125 means that the sandbox itself could not be set up.
#include <dirent.h>
#include <fcntl.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/personality.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr int kSetUpFailed = 125;
constexpr int kCannotRun = 126;
constexpr int kNotFound = 127;

[[noreturn]] __attribute__((format(printf, 1, 2))) void Die(const char* format, ...) {
    const int error = errno;
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (error != 0) {
        fprintf(stderr, "vimbra-sandbox: %s: %s\n", text, strerror(error));
    } else {
        fprintf(stderr, "vimbra-sandbox: %s\n", text);
    }
    _exit(kSetUpFailed);
}

void Mount(const std::string& source, const std::string& target, const char* type,
           unsigned long flags, const char* data = nullptr) {
    if (mount(source.c_str(), target.c_str(), type, flags, data) != 0) {
        Die("cannot mount %s on %s", source.c_str(), target.c_str());
    }
}

void MountTmpfs(const std::string& target, const char* data) {
    Mount("tmpfs", target, "tmpfs", MS_NOSUID, data);
}

void MakeDirectory(const std::string& path, mode_t mode = 0755) {
    if (mkdir(path.c_str(), mode) != 0 && errno != EEXIST) {
        Die("cannot make %s", path.c_str());
    }
}

void MakeDirectories(const std::string& path) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        MakeDirectory(path.substr(0, slash));
    }
    MakeDirectory(path);
}

// What a mount covers stays reachable through a descriptor that was opened before.
int OpenPath(const std::string& path) {
    return open(path.c_str(), O_PATH | O_CLOEXEC);
}

std::string PathOf(int descriptor) {
    return "/proc/self/fd/" + std::to_string(descriptor);
}

bool IsDirectory(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

void WriteFile(const std::string& path, const std::string& text) {
    const int file = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (file < 0 || write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        Die("cannot write %s", path.c_str());
    }
    close(file);
}

// A file that may not be read (the shadow passwords, for an ordinary user) is simply not there.
void CopyFile(const std::string& from, const std::string& to, mode_t mode) {
    const int source = open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (source < 0) {
        return;
    }
    const int target = open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (target < 0) {
        Die("cannot make %s", to.c_str());
    }
    char block[65536];
    ssize_t got = 0;
    while ((got = read(source, block, sizeof block)) > 0) {
        if (write(target, block, static_cast<size_t>(got)) != got) {
            Die("cannot copy %s", to.c_str());
        }
    }
    fchmod(target, mode & 07777);
    close(target);
    close(source);
}

enum class Below { kBind, kCopy };

// Fills the directory `to` with what `from` holds: files and links as copies, directories bound
// (and read-only with `from`) or copied in turn.
void Populate(const std::string& from, const std::string& to, Below below) {
    DIR* directory = opendir(from.c_str());
    if (directory == nullptr) {
        return;
    }
    while (const dirent* entry = readdir(directory)) {
        const std::string_view name = entry->d_name;
        if (name == "." || name == "..") {
            continue;
        }
        const std::string source = from + "/" + entry->d_name;
        const std::string target = to + "/" + entry->d_name;
        struct stat status {};
        if (lstat(source.c_str(), &status) != 0) {
            continue;
        }
        if (S_ISLNK(status.st_mode)) {
            char link[PATH_MAX];
            const ssize_t length = readlink(source.c_str(), link, sizeof link - 1);
            if (length > 0) {
                link[length] = '\0';
                if (symlink(link, target.c_str()) != 0) {
                    Die("cannot link %s", target.c_str());
                }
            }
        } else if (S_ISDIR(status.st_mode)) {
            MakeDirectory(target);
            if (below == Below::kBind) {
                Mount(source, target, nullptr, MS_BIND | MS_REC);
            } else {
                Populate(source, target, below);
            }
        } else if (S_ISREG(status.st_mode)) {
            CopyFile(source, target, status.st_mode);
        }
    }
    closedir(directory);
}

// Replaces a system directory by a throw-away one with the same content. Its directories are the
// real ones, read-only; those named in `writable` are throw-away too, and there in any case.
void Recompose(const std::string& directory, const std::vector<const char*>& writable) {
    Mount(directory, directory, nullptr, MS_BIND | MS_REC);
    struct statvfs status {};
    statvfs(directory.c_str(), &status);
    // A user namespace may not take these away from a mount that it inherited.
    const unsigned long inherited = status.f_flag & (MS_NOSUID | MS_NODEV | MS_NOEXEC | MS_NOATIME |
                                                     MS_NODIRATIME | MS_RELATIME);
    Mount("", directory, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY | inherited);
    const int old = OpenPath(directory);
    if (old < 0) {
        Die("cannot open %s", directory.c_str());
    }
    MountTmpfs(directory, "mode=0755");
    Populate(PathOf(old), directory, Below::kBind);
    for (const char* name : writable) {
        const std::string target = directory + "/" + name;
        if (IsDirectory(target)) {
            MountTmpfs(target, "mode=0755");
            Populate(PathOf(old) + "/" + name, target, Below::kCopy);
        } else {
            MakeDirectory(target);
        }
    }
    close(old);
}

void BindNode(int oldDev, const std::string& name) {
    const std::string source = PathOf(oldDev) + "/" + name;
    const std::string target = "/dev/" + name;
    if (access(source.c_str(), F_OK) != 0) {
        return;
    }
    const int file = open(target.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
    if (file >= 0) {
        close(file);
    }
    Mount(source, target, nullptr, MS_BIND);
}

void MakeDev() {
    const int old = OpenPath("/dev");
    if (old < 0) {
        Die("cannot open /dev");
    }
    Mount("tmpfs", "/dev", "tmpfs", MS_NOSUID, "mode=0755");
    MakeDirectory("/dev/net");
    for (const char* node : {"null", "zero", "full", "random", "urandom", "tty", "net/tun"}) {
        BindNode(old, node);
    }
    MakeDirectory("/dev/shm");
    chmod("/dev/shm", 01777);
    MakeDirectory("/dev/pts");
    // No pseudo terminals are no reason to give up: only a test that asks for one will miss them.
    if (mount("devpts", "/dev/pts", "devpts", MS_NOSUID | MS_NOEXEC,
              "newinstance,ptmxmode=0666,mode=0620") == 0 &&
        symlink("pts/ptmx", "/dev/ptmx") != 0) {
        Die("cannot link /dev/ptmx");
    }
    for (const auto& [name, target] :
         {std::pair{"fd", "/proc/self/fd"}, std::pair{"stdin", "/proc/self/fd/0"},
          std::pair{"stdout", "/proc/self/fd/1"}, std::pair{"stderr", "/proc/self/fd/2"}}) {
        if (symlink(target, (std::string("/dev/") + name).c_str()) != 0) {
            Die("cannot link /dev/%s", name);
        }
    }
    close(old);
}

void RaiseLoopback() {
    const int probe = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    if (probe < 0 || ioctl(probe, SIOCSIFFLAGS, &request) != 0) {
        Die("cannot raise the loopback");
    }
    close(probe);
}

bool Lies(const std::string& path, const std::string& under) {
    return path.size() > under.size() && path.compare(0, under.size(), under) == 0 &&
           path[under.size()] == '/';
}

bool IsReplaced(const std::string& path) {
    for (const char* directory : {"/tmp", "/run", "/var/run", "/dev", "/etc", "/usr"}) {
        if (Lies(path, directory)) {
            return true;
        }
    }
    return false;
}

std::string RealPath(const std::string& path) {
    char resolved[PATH_MAX];
    return realpath(path.c_str(), resolved) != nullptr ? resolved : "";
}

// Notes a directory that the throw-away ones would hide, by its real path.
void Keep(std::vector<std::string>& kept, const std::string& given) {
    const std::string path = RealPath(given);
    // The system's own programs are there anyway, and are better left read-only.
    if (path.empty() || !IsReplaced(path) || path == "/usr/bin" || path == "/usr/sbin") {
        return;
    }
    for (const std::string& other : kept) {
        if (path == other || Lies(path, other)) {
            return;
        }
    }
    kept.push_back(path);
}

std::string DirectoryOf(const std::string& path) {
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "" : path.substr(0, slash + 1);
}

void BuildWorld(const std::vector<std::string>& kept) {
    Mount("", "/", nullptr, MS_REC | MS_PRIVATE);
    std::vector<int> keptDescriptors;
    for (const std::string& path : kept) {
        keptDescriptors.push_back(OpenPath(path));
        if (keptDescriptors.back() < 0) {
            Die("cannot open %s", path.c_str());
        }
    }
    Mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC);
    MountTmpfs("/tmp", "mode=1777");
    MountTmpfs("/run", "mode=0755");
    if (IsDirectory("/var/run")) {
        MountTmpfs("/var/run", "mode=0755");
    }
    // The device keeps its lease file and a second inetd configuration under /usr.
    Recompose("/usr", {"etc", "config"});
    Recompose("/etc", {});
    MakeDev();
    for (size_t i = 0; i < kept.size(); ++i) {
        MakeDirectories(kept[i]);
        Mount(PathOf(keptDescriptors[i]), kept[i], nullptr, MS_BIND | MS_REC);
        close(keptDescriptors[i]);
    }
    RaiseLoopback();
}

// Root enters them as he is, unless he may not (in a container) and has to become root of his own.
void EnterNamespaces() {
    constexpr int kPrivate =
        CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWPID | CLONE_NEWUTS;
    if (geteuid() == 0 && unshare(kPrivate) == 0) {
        return;
    }
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (unshare(CLONE_NEWUSER | kPrivate) != 0) {
        Die("cannot make namespaces (are user namespaces allowed on this machine?)");
    }
    WriteFile("/proc/self/setgroups", "deny");
    WriteFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1\n");
    WriteFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1\n");
}

// Dies with the launcher, also when the launcher was gone before the wish could be uttered: the
// pipe that only the launcher holds has then hung up.
void DieWithLauncher(int launcherAlive) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    pollfd end{launcherAlive, POLLIN, 0};
    if (poll(&end, 1, 0) != 0) {
        _exit(kSetUpFailed);
    }
    close(launcherAlive);
}

[[noreturn]] void RunCommand(char** command) {
    // The thread sanitizer of gcc 12 cannot live with the address layout that newer kernels draw.
    const int persona = personality(0xffffffff);
    personality(static_cast<unsigned long>(persona) | ADDR_NO_RANDOMIZE);
    setenv("VIMBRA_SANDBOX", "1", 1);
    execvp(command[0], command);
    const int error = errno;
    fprintf(stderr, "vimbra-sandbox: cannot run %s: %s\n", command[0], strerror(error));
    _exit(error == ENOENT ? kNotFound : kCannotRun);
}

// The first process of the new world: builds it, starts the command, buries whatever dies, and ends
// with the command, which ends everything that is still left.
[[noreturn]] void RunFirstProcess(const std::vector<std::string>& kept, const std::string& current,
                                  int launcherAlive, int report, char** command) {
    DieWithLauncher(launcherAlive);
    BuildWorld(kept);
    if (chdir(current.c_str()) != 0 && chdir("/") != 0) {
        Die("cannot change to %s", current.c_str());
    }
    const pid_t child = fork();
    if (child < 0) {
        Die("cannot fork");
    }
    if (child == 0) {
        RunCommand(command);
    }
    for (;;) {
        int status = 0;
        const pid_t gone = waitpid(-1, &status, 0);
        if (gone == child) {
            const bool written = write(report, &status, sizeof status) == sizeof status;
            _exit(written ? 0 : kSetUpFailed);
        }
        if (gone < 0 && errno != EINTR) {
            Die("lost the command");
        }
    }
}

// Ends as the command did, so that whoever started the launcher sees a crash as a crash.
[[noreturn]] void EndAs(int status) {
    fflush(nullptr);
    if (WIFSIGNALED(status)) {
        const int number = WTERMSIG(status);
        fprintf(stderr, "vimbra-sandbox: the command died of signal %d (%s)\n", number,
                strsignal(number));
        const rlimit none{0, 0};
        setrlimit(RLIMIT_CORE, &none);
        signal(number, SIG_DFL);
        raise(number);
        _exit(128 + number);
    }
    _exit(WEXITSTATUS(status));
}

}  // namespace

int main(int count, char** arguments) {
    std::vector<std::string> kept;
    int next = 1;
    for (; next < count && arguments[next][0] == '-'; ++next) {
        const std::string_view option = arguments[next];
        if (option == "--") {
            ++next;
            break;
        }
        if (option != "--keep" || next + 1 >= count) {
            errno = 0;
            Die("bad option %s; usage: vimbra-sandbox [--keep DIR]... [--] COMMAND [ARGUMENT]...",
                arguments[next]);
        }
        Keep(kept, arguments[++next]);
    }
    if (next >= count) {
        errno = 0;
        Die("no command; usage: vimbra-sandbox [--keep DIR]... [--] COMMAND [ARGUMENT]...");
    }
    char** command = arguments + next;
    const std::string current = RealPath(".");
    Keep(kept, current);
    Keep(kept, DirectoryOf(command[0]));

    EnterNamespaces();
    int alive[2];
    int report[2];
    if (pipe2(alive, O_CLOEXEC) != 0 || pipe2(report, O_CLOEXEC) != 0) {
        Die("cannot make a pipe");
    }
    const pid_t first = fork();
    if (first < 0) {
        Die("cannot fork");
    }
    if (first == 0) {
        close(alive[1]);
        close(report[0]);
        RunFirstProcess(kept, current, alive[0], report[1], command);
    }
    close(alive[0]);
    close(report[1]);
    int outcome = 0;
    const bool reported = read(report[0], &outcome, sizeof outcome) == sizeof outcome;
    int status = 0;
    while (waitpid(first, &status, 0) < 0 && errno == EINTR) {
    }
    EndAs(reported ? outcome : status);
}
