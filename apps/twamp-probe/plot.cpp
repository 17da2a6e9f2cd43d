#include "apps/twamp-probe/plot.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "apps/common/formatted.hpp"
#include "apps/twamp-probe/histogram.hpp"
#include "net/descriptor.hpp"

namespace olv_probe {
namespace {

using olv_apps::append;

constexpr std::size_t moments = 5000;
constexpr std::size_t histogram_bars = 100;

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

/** Letters, digits and what addresses and sizes are written with: nothing that ends a text of gnuplot's. */
std::string harmless(std::string text)
{
    std::erase_if(text, [](char letter) {
        return std::strchr(" .:,%[]-_", letter) == nullptr && !(letter >= '0' && letter <= '9') &&
               !(letter >= 'a' && letter <= 'z') && !(letter >= 'A' && letter <= 'Z');
    });
    return text;
}

void append_point(std::string &script, std::int64_t sent_at, std::int64_t round_trip)
{
    append(script, "%.6f %.3f\n", static_cast<double>(sent_at) / 1e9, static_cast<double>(round_trip) / 1e3);
}

struct slot {
    const packet_record *shortest = nullptr;
    const packet_record *longest = nullptr;
};

/** Of each slice of time, the shortest and the longest round trip. */
void append_points(std::string &script, const std::vector<const measurement *> &sessions)
{
    std::int64_t end = 1;
    for (const measurement *session : sessions) {
        end = session->records().empty() ? end : std::max(end, session->records().back().sent_at + 1);
    }
    std::vector<slot> slots(moments);
    for (const measurement *session : sessions) {
        for (const packet_record &record : session->records()) {
            if (record.measured) {
                const double place = static_cast<double>(record.sent_at) / static_cast<double>(end);
                slot &own = slots[std::min(moments - 1, static_cast<std::size_t>(place * moments))];
                const bool first = own.shortest == nullptr;
                own.shortest = first || record.round_trip < own.shortest->round_trip ? &record : own.shortest;
                own.longest = first || record.round_trip > own.longest->round_trip ? &record : own.longest;
            }
        }
    }
    for (const slot &own : slots) {
        if (own.shortest != nullptr) {
            append_point(script, own.shortest->sent_at, own.shortest->round_trip);
        }
        if (own.longest != own.shortest) {
            append_point(script, own.longest->sent_at, own.longest->round_trip);
        }
    }
}

void append_bars(std::string &script, const histogram &figures)
{
    for (std::size_t index = 0; index < figures.bars.size(); ++index) {
        const auto width = static_cast<double>(figures.width);
        const double middle = static_cast<double>(figures.start) + width * (static_cast<double>(index) + 0.5);
        append(script, "%.3f %llu\n", middle / 1e3, static_cast<unsigned long long>(figures.bars[index]));
    }
}

} // namespace

std::string plot_script(const std::vector<const measurement *> &sessions, const std::string &title, bool png)
{
    std::vector<std::int64_t> samples;
    for (const measurement *session : sessions) {
        session->append_delays(path::round_trip, {}, samples);
    }
    const histogram figures = histogram_of(std::move(samples), histogram_bars);
    std::string script = png ? "set terminal pngcairo noenhanced size 1000,800\n"
                             : "set terminal svg noenhanced size 1000,800 background rgb 'white'\n";
    script += "$points << END\n";
    append_points(script, sessions);
    script += "END\n$bars << END\n";
    append_bars(script, figures);
    script += "END\nset multiplot layout 2,1 title '" + harmless(title) + "'\nset grid\nunset key\n";
    script += "set xlabel 'sent after (s)'\nset ylabel 'round trip (us)'\n"
              "plot $points using 1:2 with points pointtype 7 pointsize 0.3\n";
    script += figures.has_above ? "set xlabel 'round trip (us), the last bar and above'\n"
                                : "set xlabel 'round trip (us)'\n";
    append(script,
           "set ylabel 'packets'\nset yrange [0:*]\nset boxwidth %.3f\nset style fill solid 0.6\n"
           "plot $bars using 1:2 with boxes\nunset multiplot\n",
           static_cast<double>(figures.width) / 1e3);
    return script;
}

void draw_plot(const std::string &file, const std::vector<const measurement *> &sessions,
               const std::string &title)
{
    const bool measured = std::any_of(sessions.begin(), sessions.end(),
                                      [](const measurement *session) { return session->counts().valid != 0; });
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
        fail(file, "the program gnuplot is not installed");
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
