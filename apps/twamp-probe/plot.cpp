#include "apps/twamp-probe/plot.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string_view>

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "apps/twamp-probe/plot_script.hpp"
#include "net/descriptor.hpp"

namespace olv_probe {
namespace {

constexpr const char *not_installed = "the program gnuplot is not installed";

[[noreturn]] void fail(const std::string &file, const std::string &reason)
{
    throw std::runtime_error("cannot draw '" + file + "': " + reason);
}

/** The first line of what a descriptor holds. */
std::string first_line_of(int descriptor)
{
    std::array<char, 512> start{};
    const ssize_t length = pread(descriptor, start.data(), start.size(), 0);
    const std::string text(start.data(), static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    const std::size_t begin = text.find_first_not_of(" \n");
    return begin == std::string::npos ? "" : text.substr(begin, text.find('\n', begin) - begin);
}

/** A file in memory, for a program to read or write. */
class memory_file {
  public:
    explicit memory_file(const char *name) : descriptor_(memfd_create(name, MFD_CLOEXEC)) {}

    [[nodiscard]] int descriptor() const { return descriptor_.number(); }
    [[nodiscard]] bool holds(const std::string &text) const
    {
        std::size_t done = 0;
        while (done < text.size()) {
            const ssize_t written = write(descriptor(), &text[done], text.size() - done);
            if (written <= 0) {
                return false;
            }
            done += static_cast<std::size_t>(written);
        }
        return lseek(descriptor(), 0, SEEK_SET) == 0;
    }

  private:
    olv_net::descriptor descriptor_;
};

/** A file that gets its name when it is complete, and is removed if it never is. */
class pending_file {
  public:
    explicit pending_file(const std::string &name) : name_(name), temporary_(name + ".XXXXXX")
    {
        descriptor_ = olv_net::descriptor{mkostemp(temporary_.data(), O_CLOEXEC)};
        if (!descriptor_.is_open()) {
            fail(name, std::strerror(errno));
        }
    }
    ~pending_file()
    {
        if (!kept_) {
            (void)unlink(temporary_.c_str()); // nobody knows of it
        }
    }
    pending_file(const pending_file &) = delete;
    pending_file &operator=(const pending_file &) = delete;

    [[nodiscard]] int descriptor() const { return descriptor_.number(); }
    void keep()
    {
        const mode_t mask = umask(0);
        (void)umask(mask); // there is no way to ask but to set it
        if (fchmod(descriptor(), 0666 & ~mask) != 0 || fsync(descriptor()) != 0 ||
            std::rename(temporary_.c_str(), name_.c_str()) != 0) {
            fail(name_, std::strerror(errno));
        }
        kept_ = true;
    }

  private:
    std::string name_;
    std::string temporary_;
    olv_net::descriptor descriptor_;
    bool kept_ = false;
};

/** Run gnuplot without a shell. @return 0 or why it could not be started, and its wait status. */
int run_gnuplot(int input, int output, int errors, int &status)
{
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    (void)posix_spawn_file_actions_init(
        &files); // these fail for lack of memory only, and nothing is allocated yet
    (void)posix_spawnattr_init(&attributes);
    (void)posix_spawn_file_actions_adddup2(&files, input, STDIN_FILENO);
    (void)posix_spawn_file_actions_adddup2(&files, output, STDOUT_FILENO);
    (void)posix_spawn_file_actions_adddup2(&files, errors, STDERR_FILENO);
    // Signals that this process blocks would be blocked in gnuplot, too.
    sigset_t none;
    (void)sigemptyset(&none);
    (void)posix_spawnattr_setsigmask(&attributes, &none);
    (void)posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    std::string program = "gnuplot";
    std::array<char *, 2> arguments{program.data(), nullptr};
    pid_t process = -1;
    const int error = posix_spawnp(&process, program.c_str(), &files, &attributes, arguments.data(), environ);
    (void)posix_spawn_file_actions_destroy(&files); // they are done with
    (void)posix_spawnattr_destroy(&attributes);
    while (error == 0 && waitpid(process, &status, 0) < 0 && errno == EINTR) {
    }
    return error;
}

/** Where the shell would find it, too. */
bool is_installed(const std::string &program)
{
    const char *folders = std::getenv("PATH");
    std::string_view rest = folders == nullptr ? "/bin:/usr/bin" : folders;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(':'), rest.size());
        const std::string file = std::string(rest.substr(0, end)) + "/" + program;
        if (access(file.c_str(), X_OK) == 0) {
            return true;
        }
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return false;
}

} // namespace

void require_plot(const std::string &file)
{
    const std::filesystem::path path = file;
    const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
    if (access(folder.c_str(), W_OK | X_OK) != 0) {
        fail(file, std::strerror(errno));
    }
    if (std::filesystem::is_directory(path)) {
        fail(file, std::strerror(EISDIR));
    }
    if (!is_installed("gnuplot")) {
        fail(file, not_installed);
    }
}

void draw_plot(const std::string &file, const std::vector<const measurement *> &sessions,
               const std::string &title)
{
    const bool measured = std::any_of(sessions.begin(), sessions.end(), [](const measurement *session) {
        return session->counts().measured != 0;
    });
    if (!measured) {
        fail(file, "no round trip was measured");
    }
    const memory_file script{"script"};
    const memory_file errors{"errors"};
    if (!script.holds(plot_script(sessions, title, file.ends_with(".png")))) {
        fail(file, std::string("no memory for the data: ") + std::strerror(errno));
    }
    pending_file picture{file};
    int status = 0;
    const int error = run_gnuplot(script.descriptor(), picture.descriptor(), errors.descriptor(), status);
    if (error == ENOENT) {
        fail(file, not_installed);
    }
    if (error != 0) {
        fail(file, std::string("gnuplot cannot be started: ") + std::strerror(error));
    }
    const off_t size = lseek(picture.descriptor(), 0, SEEK_END);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0 || size <= 0) {
        const std::string reason = first_line_of(errors.descriptor());
        fail(file, "gnuplot failed" + (reason.empty() ? reason : ": " + reason));
    }
    picture.keep();
}

} // namespace olv_probe
