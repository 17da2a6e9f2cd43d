// A million responders: what they take, and a dump of them.
#include <algorithm>
#include <cstdio>
#include <string_view>
#include <thread>

#include <gtest/gtest.h>
#include <unistd.h>

#include "populated_module.hpp"
#include "resident_memory.hpp"

namespace {

using olv_bench::populated_module;
using olv_bench::visiting_order;

constexpr std::uint32_t million = 1'000'000;

/** Reads what is printed while it lives: responders' lines have to count IDs up from 1. */
class dump_reader {
  public:
    dump_reader()
    {
        int ends[2] = {-1, -1};
        EXPECT_EQ(pipe(ends), 0);
        std::fflush(stdout);
        console_ = dup(STDOUT_FILENO);
        EXPECT_GE(dup2(ends[1], STDOUT_FILENO), 0);
        close(ends[1]);
        thread_ = std::thread{[this, end = ends[0]] { read(end); }};
    }
    ~dump_reader() { finish(); }
    dump_reader(const dump_reader &) = delete;
    dump_reader &operator=(const dump_reader &) = delete;

    /** Give the console back. */
    void finish()
    {
        if (!thread_.joinable()) {
            return;
        }
        std::fflush(stdout);
        EXPECT_GE(dup2(console_, STDOUT_FILENO), 0);
        close(console_);
        thread_.join();
    }
    /** Lines of responders that came in their order. */
    [[nodiscard]] std::uint32_t responders() const { return responders_; }
    [[nodiscard]] std::uint32_t other_lines() const { return other_lines_; }
    [[nodiscard]] std::size_t most_bytes() const { return most_bytes_; }

  private:
    void read(int end)
    {
        std::FILE *printed = fdopen(end, "r");
        char line[256];
        while (std::fgets(line, sizeof line, printed) != nullptr) {
            char expected[64];
            std::snprintf(expected, sizeof expected, "olv_twamp.twamp_responder_lookup, 0x%X, DEFINED\n",
                          responders_ + 1);
            ++(std::string_view{line} == expected ? responders_ : other_lines_);
            if (responders_ % 10'000 == 0) {
                most_bytes_ = std::max(most_bytes_, olv_test::resident_bytes());
            }
        }
        std::fclose(printed);
    }

    int console_ = -1;
    std::uint32_t responders_ = 0;
    std::uint32_t other_lines_ = 0;
    std::size_t most_bytes_ = 0;
    std::thread thread_;
};

class many_responders : public testing::Test {
  protected:
    populated_module module_{million};
};

TEST_F(many_responders, take_their_records_of_the_library_and_160_bytes_of_the_platform)
{
    EXPECT_EQ(module_.memory().library_bytes, std::size_t{million} * sizeof(twamp_responder_handle));
    EXPECT_LE(module_.memory().platform_bytes, std::size_t{million} * 160);
}

TEST_F(many_responders, are_dumped_in_constant_memory)
{
    const std::size_t before = olv_test::resident_bytes();
    dump_reader reader;
    EXPECT_EQ(olv_twamp_tables_dump(&module_.module(), OLV_TWAMP_TABLE_GROUP_ALL), 0u);
    reader.finish();
    EXPECT_EQ(reader.responders(), million);
    EXPECT_EQ(reader.other_lines(), 2u); // a blank one and the title
    EXPECT_LT(reader.most_bytes(), before + (std::size_t{2} << 20));
}

TEST_F(many_responders, stay_as_many_whatever_is_timed)
{
    for (const visiting_order order : {visiting_order::in_turn, visiting_order::at_random}) {
        module_.choose(order);
        EXPECT_EQ(module_.chosen(), populated_module::largest_group);
        module_.read_chosen();
        module_.bind_chosen();
        module_.unbind_chosen();
        module_.delete_chosen();
        module_.create_chosen();
        module_.look_up();
    }
    EXPECT_EQ(module_.live(), million);
}

} // namespace
