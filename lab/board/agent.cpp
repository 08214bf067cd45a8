// lab-agent: carries the control channel of the virtual board on standard input and output, raises boards
// on request, and ends them. Run by lab/lab as root, natively or as the only program of the small machine.
//
//   lab-agent --programs DIR            serve; DIR has the programs of the board in bin and lib
//   lab-agent ask SOCKET WORDS...       put a command to the switch's control socket, print the answer
//   lab-agent stream ADDRESS ...        a steady stream of packets to a host and back; counts what is lost
//
// A board is a separate process in new mount, network, IPC, host-name and process name spaces (--board,
// used by itself alone). It dies with this one, and with it everything in those name spaces.
#include "ask.h"
#include "board.h"
#include "stream.h"
#include "world.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <sched.h>
#include <set>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

namespace lab {
namespace {

// Where the channel is written. The small machine has one port for both directions, and may be asked about it
// by one descriptor only: its driver, when polled for output alone, takes in what has just arrived and then
// finds nothing left to wake the one who waits for input.
int output_of_channel()
{
    struct stat in, out;
    if (fstat(0, &in) != 0 || fstat(1, &out) != 0) {
        return 1;
    }
    return in.st_dev == out.st_dev && in.st_ino == out.st_ino ? 0 : 1;
}

class Carrier {
public:
    explicit Carrier(std::string programs)
        : programs_(std::move(programs)), machine_(Host::here("machine")),
          channel_(
              loop_, 0, output_of_channel(), [this](Frame frame) { take(std::move(frame)); },
              [this] { loop_.stop(); }),
          executor_(loop_, channel_)
    {
        channel_.on_drained([this] {
            if (board_channel_) {
                board_channel_->pause(false);
            }
        });
    }
    ~Carrier() { end_board(); }
    Carrier(const Carrier &) = delete;
    Carrier &operator=(const Carrier &) = delete;

    void run()
    {
        channel_.send(FrameType::note, 0, "ready");
        loop_.run();
    }

private:
    void take(Frame frame);
    void raise(uint32_t id, const std::vector<std::string> &words);
    void end_board();
    void board_gone();

    std::string programs_;
    Host machine_;
    Loop loop_;
    Channel channel_;
    Executor executor_;
    pid_t board_ = 0;
    UniqueFd board_fd_;
    std::unique_ptr<Channel> board_channel_;
    std::set<uint32_t> open_; // requests that the board has not answered yet
};

void Carrier::take(Frame frame)
{
    if (frame.type == FrameType::up) {
        raise(frame.id, split_words(frame.payload, '\0'));
    } else if (frame.type == FrameType::down) {
        end_board();
        channel_.send(FrameType::exit, frame.id, "exit 0");
    } else if (frame.type == FrameType::exec &&
               frame.payload.compare(0, 8, std::string("machine\0", 8)) == 0) {
        std::vector<std::string> words = split_words(frame.payload, '\0');
        words.erase(words.begin());
        executor_.start(frame.id, machine_, std::move(words));
    } else if (frame.type == FrameType::exec && !board_channel_) {
        channel_.send(FrameType::exit, frame.id, "failed no board is up");
    } else {
        if (frame.type == FrameType::input) {
            executor_.input(frame.id, frame.payload);
        } else if (frame.type == FrameType::kill && !frame.payload.empty()) {
            executor_.kill(frame.id, frame.payload[0]);
        }
        if (board_channel_) {
            if (frame.type == FrameType::exec) {
                open_.insert(frame.id);
            }
            board_channel_->send(frame.type, frame.id, frame.payload);
        }
    }
}

void Carrier::raise(uint32_t id, const std::vector<std::string> &words)
{
    end_board();
    std::array<int, 2> pair{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()) < 0) {
        channel_.send(FrameType::exit, id, std::string("failed socketpair: ") + std::strerror(errno));
        return;
    }
    board_fd_ = UniqueFd(pair[0]);
    UniqueFd theirs(pair[1]);
    constexpr unsigned long spaces = CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWUTS | CLONE_NEWPID;
    // as fork, with new name spaces from the first instruction on
    long pid = syscall(SYS_clone, spaces | SIGCHLD, nullptr, nullptr, nullptr, nullptr);
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        setsid();
        dup2(theirs.get(), 0);
        dup2(2, 1);
        const std::string &folder = words[0];
        const std::string request = std::to_string(id);
        execl("/proc/self/exe", "lab-agent", "--board", folder.c_str(), programs_.c_str(), request.c_str(),
              nullptr);
        _exit(127);
    }
    if (pid < 0) {
        channel_.send(FrameType::exit, id, std::string("failed new name spaces: ") + std::strerror(errno));
        return;
    }
    board_ = static_cast<pid_t>(pid);
    open_.insert(id);
    board_channel_ = std::make_unique<Channel>(
        loop_, board_fd_.get(), board_fd_.get(),
        [this](const Frame &frame) {
            if (frame.type == FrameType::exit) {
                open_.erase(frame.id);
            }
            channel_.send(frame.type, frame.id, frame.payload);
            if (channel_.congested()) {
                board_channel_->pause(true);
            }
        },
        [this] { loop_.after(std::chrono::milliseconds(0), [this] { board_gone(); }); });
}

void Carrier::end_board()
{
    if (board_ == 0) {
        return;
    }
    kill(board_, SIGKILL); // takes every process of its name space along
    waitpid(board_, nullptr, 0);
    board_ = 0;
    board_channel_.reset();
    board_fd_.reset();
    for (uint32_t id : open_) {
        channel_.send(FrameType::exit, id, "failed the board has ended");
    }
    open_.clear();
}

void Carrier::board_gone()
{
    if (board_ != 0 && board_channel_) {
        end_board();
        channel_.send(FrameType::note, 0, "the board has ended by itself");
    }
}

// The first process of a board. Standard input is its channel.
int serve_board(const std::string &folder, const std::string &programs, const std::string &request)
{
    auto id = static_cast<uint32_t>(std::strtoul(request.c_str(), nullptr, 10));
    UniqueFd channel(dup(0));
    try {
        Plan plan = read_plan(folder + "/plan");
        check(sethostname("router", 6), "host name");
        build_world(folder + "/root", folder + "/rootfs", programs);
        Board board(std::move(plan), channel.get());
        board.raise();
        board.run(id);
    } catch (const std::exception &error) {
        std::string answer = frame_bytes(FrameType::exit, id, std::string("failed ") + error.what());
        return write(channel.get(), answer.data(), answer.size()) > 0 ? 1 : 2;
    }
    return 0;
}

int usage(int status)
{
    fputs("usage: lab-agent --programs DIR\n"
          "       lab-agent ask SOCKET [--stream] WORDS...\n"
          "       lab-agent stream ADDRESS [MICROSECONDS [PORT]]\n"
          "Serves the virtual board's control channel on standard input and output (lab/lab starts it),\n"
          "or puts one command to a control socket and prints the answer, or sends a packet to a host every "
          "so\n"
          "many microseconds (1000) until it is ended, and counts those that do not come back: echo "
          "requests, or\n"
          "with a port a TCP connection to a server that sends back what it gets.\n",
          status == 0 ? stdout : stderr);
    return status;
}

int ask_command(int argc, char **argv)
{
    bool stream = std::string(argv[3]) == "--stream";
    std::string line;
    for (int i = stream ? 4 : 3; i < argc; i++) {
        line += line.empty() ? "" : " ";
        line += argv[i];
    }
    return ask(argv[2], line, stream);
}

int stream_command(int argc, char **argv)
{
    StreamPlan plan{argv[2]};
    if (argc > 3) {
        plan.every = std::chrono::microseconds(std::stoul(argv[3]));
    }
    if (argc > 4) {
        plan.port = std::stoi(argv[4]);
    }
    return run_stream(plan);
}

int run(int argc, char **argv)
{
    std::string verb = argc > 1 ? argv[1] : "";
    if (verb == "--board" && argc == 5) {
        return serve_board(argv[2], argv[3], argv[4]);
    }
    if (verb == "ask" && argc > 3) {
        return ask_command(argc, argv);
    }
    if (verb == "stream" && argc > 2 && argc < 6) {
        return stream_command(argc, argv);
    }
    if (verb == "--programs" && argc == 3) {
        signal(SIGPIPE, SIG_IGN);
        Carrier(argv[2]).run();
        return 0;
    }
    return usage(verb == "--help" ? 0 : 2);
}

} // namespace
} // namespace lab

int main(int argc, char **argv)
{
    try {
        return lab::run(argc, argv);
    } catch (const std::exception &error) {
        fprintf(stderr, "lab-agent: %s\n", error.what());
        return 1;
    }
}
