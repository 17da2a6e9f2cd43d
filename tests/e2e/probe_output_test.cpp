// What twamp-probe prints and draws, and what it says when that fails.

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "control_program.hpp"

namespace e2e {
namespace {

using nlohmann::json;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/** A folder of the test's own, removed with all that is in it. */
class test_folder {
  public:
    test_folder()
    {
        std::string name = (std::filesystem::temp_directory_path() / "probe-test.XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) {
            throw std::runtime_error("no folder for the test");
        }
        path_ = name;
    }
    ~test_folder() { std::filesystem::remove_all(path_); }
    test_folder(const test_folder &) = delete;
    test_folder &operator=(const test_folder &) = delete;

    [[nodiscard]] std::string file(const std::string &name) const { return (path_ / name).string(); }
    [[nodiscard]] std::vector<std::string> names() const
    {
        std::vector<std::string> all;
        for (const auto &entry : std::filesystem::directory_iterator(path_)) {
            all.push_back(entry.path().filename().string());
        }
        return all;
    }

  private:
    std::filesystem::path path_;
};

std::string content_of(const std::string &file)
{
    std::ifstream input{file, std::ios::binary};
    return {std::istreambuf_iterator<char>{input}, {}};
}

class ProbeOutput : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(control_.addresses().size(), 1u); }

    [[nodiscard]] finished_program probe(const std::vector<std::string> &arguments) const
    {
        std::vector<std::string> all{control_.addresses()[0], "--interval", "1"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return run_probe(all);
    }

    control_program control_{{"--listen", "127.0.0.1:0"}};
};

TEST_F(ProbeOutput, TextHasAllDelays)
{
    const finished_program finished = probe({"--count", "20", "--histogram"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(finished.output,
                ContainsRegex("\nreordered: 0 \\(0\\.00 %\\)\n"
                              "hops forward: min 0, max 0 \\(TTL 255 to 255, sent with 255\\)\n"
                              "hops backward: min 0, max [0-9]+ \\(TTL [0-9]+ to [0-9]+, "
                              "assumed [0-9]+\\)\n\n"
                              "microseconds  .* round trip .* forward .* backward\n"));
    for (const char *row : {"min", "mean", "stddev", "p50", "p90", "p95", "p99", "p99.9", "max", "IPDV min",
                            "IPDV mean magnitude", "IPDV max", "PDV p50", "PDV p99", "PDV p99.9"}) {
        EXPECT_THAT(finished.output, HasSubstr(std::string("\n") + row + " "));
    }
    EXPECT_THAT(finished.output, ContainsRegex("\nround trips in microseconds, packets\n"
                                               " +[0-9.]+ (to +[0-9.]+|and above +) \\|#* ?[0-9]+\n"));
    std::istringstream lines{finished.output};
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 79u) << line;
    }
}

TEST_F(ProbeOutput, JsonHasTotalsAndSenders)
{
    const finished_program finished = probe({"--count", "20", "--senders", "3", "--format", "json"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    const json document = json::parse(finished.output);
    EXPECT_EQ(document["options"]["reflector"], control_.addresses()[0]);
    EXPECT_EQ(document["interrupted"], false);
    EXPECT_EQ(document["total"]["sent"], 60);
    EXPECT_EQ(document["total"]["valid"], 60);
    EXPECT_EQ(document["total"]["round_trip_us"]["delay"]["count"], 60);
    EXPECT_EQ(document["total"]["round_trip_us"]["ipdv"]["count"], 57);
    ASSERT_EQ(document["senders"].size(), 3u);
    for (const json &sender : document["senders"]) {
        EXPECT_EQ(sender["valid"], 20);
        EXPECT_THAT(sender["address"].get<std::string>(), StartsWith("127.0.0.1:"));
    }
    EXPECT_NE(document["senders"][0]["address"], document["senders"][1]["address"]);
}

TEST_F(ProbeOutput, CsvHasALineForEachPacket)
{
    const finished_program finished = probe({"--count", "5", "--senders", "2", "--format", "csv"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_THAT(finished.output,
                StartsWith("sender,sequence,sent_us,result,round_trip_us,forward_us,backward_us,request_ttl,"
                           "reply_ttl,reordered,duplicates\n127.0.0.1:"));
    EXPECT_EQ(count_lines(finished.output, ""), 11);
    EXPECT_EQ(count_lines(finished.output, ",valid,"), 10);
    EXPECT_THAT(finished.output,
                ContainsRegex("\n127\\.0\\.0\\.1:[0-9]+,4,[0-9.]+,valid,[-0-9.]+,[-0-9.]+,[-0-9.]+,255,"
                              "[0-9]+,0,0\n"));
}

TEST_F(ProbeOutput, FiguresThatCannotBeWrittenAreAFailure)
{
    child_program probe{
        "/bin/sh", {"-c", R"("$@" >/dev/full)", "sh", TWAMP_PROBE, control_.addresses()[0], "--count", "2"}};
    EXPECT_EQ(probe.wait(), 1);
    EXPECT_EQ(probe.errors(), "twamp-probe: cannot write the figures: No space left on device\n");
}

// ---------------------------------------------------------------------------------------------------------
// Pictures
// ---------------------------------------------------------------------------------------------------------

TEST_F(ProbeOutput, DrawsAnSvg)
{
    const test_folder folder;
    const finished_program finished = probe({"--count", "10", "--plot", folder.file("delay.svg")});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(folder.names(), std::vector<std::string>{"delay.svg"});
    const std::string picture = content_of(folder.file("delay.svg"));
    EXPECT_THAT(picture, StartsWith("<?xml version=\"1.0\""));
    EXPECT_THAT(picture, HasSubstr("<svg"));
    EXPECT_THAT(picture, HasSubstr("10 packets of 41 octets to 127.0.0.1:"));
    EXPECT_THAT(picture, EndsWith("</svg>\n\n"));
}

TEST_F(ProbeOutput, DrawsAPngOverAnOldOne)
{
    const test_folder folder;
    const std::string name = folder.file("it's; `a` $(b) \"c\".png");
    std::ofstream{name} << "old";
    const finished_program finished = probe({"--count", "10", "--plot", name, "--format", "json"});
    EXPECT_EQ(finished.status, 0);
    EXPECT_EQ(finished.errors, "");
    EXPECT_EQ(folder.names(), std::vector<std::string>{"it's; `a` $(b) \"c\".png"});
    const std::string picture = content_of(name);
    EXPECT_THAT(picture, StartsWith("\x89PNG\r\n\x1a\n"));
    EXPECT_THAT(picture, EndsWith("IEND\xAE\x42\x60\x82"));
}

TEST_F(ProbeOutput, PictureWithoutAFolderIsAFailure)
{
    const finished_program finished = probe({"--count", "2", "--plot", "/nonexistent/delay.svg"});
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.output, HasSubstr("\nvalid: 2\n"));
    EXPECT_EQ(finished.errors,
              "twamp-probe: cannot draw '/nonexistent/delay.svg': No such file or directory\n");
}

/** The probe with a PATH that has this gnuplot alone; "": none at all. */
finished_program probe_with_gnuplot(const std::string &address, const test_folder &folder,
                                    const std::string &script)
{
    std::filesystem::create_directory(folder.file("bin"));
    if (!script.empty()) {
        std::ofstream{folder.file("bin/gnuplot")} << "#!/bin/sh\n" << script;
        std::filesystem::permissions(folder.file("bin/gnuplot"), std::filesystem::perms::owner_all);
    }
    return run_program("/bin/sh", {"-c", R"(PATH=$1; shift; exec "$@")", "sh", folder.file("bin"), TWAMP_PROBE,
                                   address, "--count", "2", "--plot", folder.file("delay.svg")});
}

TEST_F(ProbeOutput, MissingGnuplotIsAFailure)
{
    const test_folder folder;
    const finished_program finished = probe_with_gnuplot(control_.addresses()[0], folder, "");
    EXPECT_EQ(finished.status, 1);
    EXPECT_THAT(finished.output, HasSubstr("\nvalid: 2\n"));
    EXPECT_EQ(finished.errors, "twamp-probe: cannot draw '" + folder.file("delay.svg") +
                                   "': the program gnuplot is not installed\n");
    EXPECT_EQ(folder.names(), std::vector<std::string>{"bin"});
}

TEST_F(ProbeOutput, FailingGnuplotLeavesNothingBehind)
{
    const test_folder folder;
    const finished_program finished = probe_with_gnuplot(control_.addresses()[0], folder,
                                                         "echo '<svg half a picture'\n"
                                                         "echo 'out of ink' >&2\n"
                                                         "exit 1\n");
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.errors,
              "twamp-probe: cannot draw '" + folder.file("delay.svg") + "': gnuplot failed: out of ink\n");
    EXPECT_EQ(folder.names(), std::vector<std::string>{"bin"});
}

TEST_F(ProbeOutput, GnuplotThatDrawsNothingIsAFailure)
{
    const test_folder folder;
    const finished_program finished = probe_with_gnuplot(control_.addresses()[0], folder, "exit 0\n");
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.errors, "twamp-probe: cannot draw '" + folder.file("delay.svg") + "': gnuplot failed\n");
    EXPECT_EQ(folder.names(), std::vector<std::string>{"bin"});
}

TEST_F(ProbeOutput, PictureOnAnotherFoldersNameIsAFailure)
{
    const test_folder folder;
    std::filesystem::create_directory(folder.file("delay.svg"));
    const finished_program finished = probe({"--count", "2", "--plot", folder.file("delay.svg")});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.errors, "twamp-probe: cannot draw '" + folder.file("delay.svg") + "': Is a directory\n");
    EXPECT_EQ(folder.names(), std::vector<std::string>{"delay.svg"});
}

// ---------------------------------------------------------------------------------------------------------
// The progress line
// ---------------------------------------------------------------------------------------------------------

/** A terminal's two ends; the program's is known by its name. */
class terminal {
  public:
    terminal() : descriptor_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        if (grantpt(descriptor_) != 0 || unlockpt(descriptor_) != 0) {
            throw std::runtime_error("no terminal for the test");
        }
    }
    ~terminal() { (void)close(descriptor_); }
    terminal(const terminal &) = delete;
    terminal &operator=(const terminal &) = delete;

    [[nodiscard]] std::string name() const { return ptsname(descriptor_); }
    /** Read until this was written, or nobody can write any more. */
    std::string read_until(const std::string &part)
    {
        std::array<char, 256> piece{};
        while (text_.find(part) == std::string::npos) {
            const ssize_t length = read(descriptor_, piece.data(), piece.size());
            if (length <= 0) {
                break;
            }
            text_.append(piece.data(), static_cast<std::size_t>(length));
        }
        return text_;
    }

  private:
    int descriptor_;
    std::string text_;
};

TEST(ProbeProgress, IsRedrawnInPlaceAndWipedAway)
{
    loopback_socket silent;
    terminal screen;
    const int held =
        open(screen.name().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC); // no end before the first opener
    child_program probe{"/bin/sh",
                        {"-c", R"(exec "$@" 2>"$0")", screen.name(), TWAMP_PROBE, silent.address(), "--count",
                         "1000", "--interval", "1000"}};
    EXPECT_THAT(screen.read_until("sent 1 of 1000, received 0\x1b[K"),
                ContainsRegex("\r[0-9.]+ s, sent 1 of 1000, received 0"));
    EXPECT_THAT(screen.read_until("received 0\x1b[K\r"), Not(HasSubstr("\n")));
    probe.send_signal(SIGINT);
    EXPECT_THAT(screen.read_until("interrupted\r\n"), EndsWith("\r\x1b[Ktwamp-probe: interrupted\r\n"));
    EXPECT_EQ(probe.wait(), 1);
    (void)close(held);
}

} // namespace
} // namespace e2e
