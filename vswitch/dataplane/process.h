// Other programs: tools that are run to their end, and servers that are started, watched and ended.
#ifndef PAVO_VSWITCH_DATAPLANE_PROCESS_H
#define PAVO_VSWITCH_DATAPLANE_PROCESS_H

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace vswitch {

using Arguments = std::vector<std::string>;

// Owns a file descriptor.
class Descriptor {
  public:
    explicit Descriptor(int fd = -1) : fd_(fd) {}
    Descriptor(Descriptor &&other) noexcept;
    Descriptor &operator=(Descriptor &&other) noexcept;
    ~Descriptor();

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    void reset();

  private:
    int fd_;
};

struct ToolResult {
    int status = -1;  // exit status; -1: not started, killed by a signal or at the limit
    std::string output, error;
    std::chrono::milliseconds took{};

    bool good() const { return status == 0; }
};

// Runs a program to its end in `folder`, with empty standard input. It is killed when it takes longer than
// `limit`, or when one of the two descriptors becomes readable.
ToolResult runTool(const Arguments &arguments, const std::string &folder, std::chrono::milliseconds limit,
                   int abort = -1, int otherAbort = -1);

// A server process that ends with the one that started it, however that ends: a guard beside it waits for the
// end of a pipe and then kills the server and its children. (The kernel's parent-death signal does not
// survive a server's change of user.) One thread starts, polls and ends it.
class ServerProcess {
  public:
    ServerProcess(std::string name, const Arguments &arguments, std::string folder);
    ~ServerProcess();
    ServerProcess(ServerProcess &&other) noexcept;

    const std::string &name() const { return name_; }
    // Take effect with the next start.
    void setArguments(const Arguments &arguments) { arguments_ = arguments; }
    bool start();
    bool running() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }
    // Against all other processes of the machine, as nice values go. Without the privilege, nothing happens.
    void setPriority(int nice) const;
    std::uint64_t starts() const { return starts_; }
    // Readable once the process has ended; -1 while none runs.
    int endDescriptor() const { return end_.get(); }
    // True when it ran and has ended since the last call; `how` says how.
    bool ended(std::string &how);
    // Truncates its output file when that has grown beyond a megabyte: devices can make a server complain.
    void trimOutput() const;
    // Asks it to end, and kills it after a while.
    void stop(std::chrono::milliseconds patience = std::chrono::seconds(2));

  private:
    void endGuard();
    int reap();

    std::string name_;
    Arguments arguments_;
    std::string folder_;
    pid_t pid_ = -1;
    Descriptor end_;
    pid_t guard_ = -1;
    Descriptor lifeline_;
    std::uint64_t starts_ = 0;
};

}  // namespace vswitch

#endif
