#include "harness.hpp"
#include "olv_sim/call_record.hpp"
#include "olv_sim/faults.hpp"
#include "olv_sim/framework.hpp"
#include "olv_sim/process.hpp"
#include "olv_sim/processor.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/tracer.hpp"
#include "olv_sim/violations.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace {

std::string formatted(const char *format, std::uint32_t value)
{
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), format, value);
    return text.data();
}

std::string replaced(std::string text, const std::string &from, const std::string &to)
{
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

/** Replace each "{keyword argument}" by what @p text_of makes of the argument. */
std::string with_texts(const std::string &text, const std::string &keyword,
                       const std::function<std::string(const std::string &)> &text_of)
{
    const std::string opening = "{" + keyword + " ";
    std::string result;
    std::size_t rest = 0;
    for (std::size_t at = 0; (at = text.find(opening, rest)) != std::string::npos;) {
        const std::size_t argument = at + opening.size();
        const std::size_t end = text.find('}', argument);
        if (end == std::string::npos)
            break;
        result += text.substr(rest, at - rest) + text_of(text.substr(argument, end - argument));
        rest = end + 1;
    }
    return result + text.substr(rest);
}

std::uint32_t number(const std::string &text)
{
    return static_cast<std::uint32_t>(std::stoul(text, nullptr, 0));
}

bool is_status_text(const olv_sim::trace_event &event)
{
    return event.format == "%s\n" && event.level != olv_sim::trace_event::forced_error;
}

} // namespace

namespace olv_test {

std::ostream &operator<<(std::ostream &stream, const trace &value)
{
    if (value.level == olv_sim::trace_event::forced_error)
        stream << "forced";
    else
        stream << value.level;
    return stream << (value.by_system ? " by system " : " ") << testing::PrintToString(value.text);
}

std::ostream &operator<<(std::ostream &stream, const remains &value)
{
    return stream << value.responder_ids << " responder IDs, " << value.responder_entries
                  << " responder entries, " << value.bind_entries << " bind entries, " << value.blocks
                  << " blocks, " << value.patterns << " patterns, lock held " << value.lock_held
                  << (value.initialised ? ", initialised" : ", not initialised")
                  << (value.registered ? ", registered" : ", not registered");
}

std::string captured_console(const std::function<void()> &work)
{
    std::fflush(stdout);
    const int saved = dup(STDOUT_FILENO);
    const int file = memfd_create("console", 0);
    if (saved < 0 || file < 0 || dup2(file, STDOUT_FILENO) < 0) {
        std::perror("standard output cannot be captured");
        std::abort();
    }
    work();
    std::fflush(stdout);
    dup2(saved, STDOUT_FILENO);
    close(saved);

    std::string text;
    std::array<char, 4096> chunk{};
    lseek(file, 0, SEEK_SET);
    for (ssize_t got = 0; (got = read(file, chunk.data(), chunk.size())) > 0;)
        text.append(chunk.data(), static_cast<std::size_t>(got));
    close(file);
    return text;
}

void quietly(const std::function<void()> &work)
{
    static_cast<void>(captured_console(work));
}

std::uint32_t quiet(const std::function<std::uint32_t()> &operation)
{
    std::uint32_t status = 0;
    quietly([&] { status = operation(); });
    return status;
}

void expect_status_lines_follow_messages(const observation &seen)
{
    const olv_sim::trace_event *message = nullptr;
    for (const olv_sim::trace_event &event : seen.events) {
        if (is_status_text(event)) {
            ASSERT_NE(message, nullptr) << "status text without a message: " << event.text;
            EXPECT_EQ(event.level, message->level) << event.text;
            EXPECT_EQ(event.file, message->file) << event.text;
            EXPECT_EQ(event.line, message->line) << event.text;
            EXPECT_EQ(event.record, message->record) << event.text;
        }
        message = &event;
    }
}

void expect_console_agrees_with_traces(const observation &seen)
{
    std::size_t at = 0;
    for (const olv_sim::trace_event &event : seen.events) {
        if (!event.format)
            continue;
        const bool with_arguments = event.format->find('%') != std::string::npos;
        std::string text = event.text;
        while (!with_arguments && text.ends_with('\n'))
            text.pop_back();
        const std::string line = " " + event.file + ":" + std::to_string(event.line) + " " + text;
        const std::size_t found = seen.raw_console.find(line, at);
        ASSERT_NE(found, std::string::npos) << "not on the console: " << line << "\n" << seen.raw_console;
        at = found + line.size();
    }
}

bench::bench(options setup)
    : processor(setup.program),
      module(framework.create_module({.module_id = olv_sim::module_id_twamp,
                                      .processor = &processor,
                                      .log_name = "twamp",
                                      .log_flags = 0,
                                      .locked = setup.locked,
                                      .system = setup.system,
                                      .default_entry_point = 0})),
      handle(module),
      foreign{},
      blocks_before_(olv_sim::memory::in_use().live_blocks),
      patterns_before_(olv_sim::patterns::live()),
      lock_(module->lock)
{
    olv_sim::reset_process();
    olv_sim::violations::set_echo(true);
    olv_sim::set_wall_clock(hyx_time{12, 34});
    framework.system()->log_flags = 0;
    if (setup.initialised) {
        EXPECT_EQ(quiet([&] { return olv_twamp_init(module); }), 0u) << "the bench's module does not come up";
    }
    foreign = *module;
    foreign.magic = 0x53248792;
    foreign.log_name = reinterpret_cast<const char *>(std::uintptr_t{16});
    foreign.system = reinterpret_cast<olv_system_handle *>(std::uintptr_t{16});
    set_log_words(setup.module_flags, setup.system_flags);
}

bench::~bench()
{
    olv_sim::faults::clear_all();
    for (void *block : kept_)
        hyx_nvm_free(block);
    if (lock_ != 0 && olv_sim::semaphores::held(lock_) != 0) {
        ADD_FAILURE() << "the module lock is still held";
        hyx_sem_post(lock_);
    }
    module->lock = lock_;
    if (marked_ != nullptr)
        set_context_magic(0x18496124);
    if (olv_twamp_valid_module_handle(module) == 1) {
        EXPECT_EQ(quiet([&] { return olv_twamp_shutdown(module); }), 0u)
            << "the bench's module does not go down";
    }
    EXPECT_EQ(olv_sim::memory::in_use().live_blocks, blocks_before_) << "memory blocks leaked";
    EXPECT_EQ(olv_sim::patterns::live(), patterns_before_) << "patterns leaked";
    EXPECT_THAT(olv_sim::violations::list(), testing::IsEmpty());
    olv_sim::reset_process();
}

observation bench::observe(const std::function<std::uint32_t()> &operation, unsigned kinds)
{
    observation seen;
    sink_.clear();
    olv_sim::tracer::set_sink(&sink_);
    olv_sim::call_record::start(kinds);
    seen.raw_console = captured_console([&] { seen.status = operation(); });
    olv_sim::call_record::stop();
    olv_sim::tracer::set_sink(nullptr);

    seen.recorded = olv_sim::call_record::calls();
    seen.calls = olv_sim::call_record::names();
    seen.console = without_source_lines(seen.raw_console);
    seen.events = sink_.events();
    for (const olv_sim::trace_event &event : seen.events)
        seen.traces.push_back({event.level, event.format ? *event.format : event.text,
                               event.record != nullptr && event.record == framework.system()});
    return seen;
}

std::string bench::expand(const std::string &text) const
{
    const auto address = static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(handle));
    std::string result = replaced(text, "{module}", formatted("%08" PRIx32, address));
    result = replaced(result, "{MODULE}", formatted("%08" PRIX32, address));
    result = with_texts(result, "status", [&](const std::string &argument) {
        return olv_sys_status_get(framework.system(), number(argument));
    });
    result =
        with_texts(result, "rte", [](const std::string &argument) { return hyx_status_get(number(argument)); });
    result = replaced(result, "{plain}", "");
    result = with_texts(result, "zeros", [](const std::string &argument) {
        const std::vector<std::uint8_t> zeros(number(argument));
        return captured_console(
            [&] { olv_byte_string_print(zeros.data(), static_cast<std::uint32_t>(zeros.size())); });
    });
    result = with_texts(result, "action", [](const std::string &argument) {
        return captured_console([&] { olv_ptn_action_print({{number(argument), 0, 0}}); });
    });
    result = with_texts(result, "key", [](const std::string &argument) {
        olv_ptn pattern{};
        static_cast<void>(olv_ptn_new(24, &pattern));
        static_cast<void>(olv_ptn_extend(&pattern, number(argument), 24));
        std::string printed = captured_console([&] { olv_ptn_print(pattern); });
        olv_ptn_free(pattern);
        return printed;
    });
    return with_texts(result, "tree", [&](const std::string &argument) -> std::string {
        std::uint32_t id = 0;
        const std::uint32_t status = hyx_ptn_symbol_get_id(processor.rte_handle(), argument.c_str(), &id);
        return status == 0 ? olv_sif_fps_map(id) : "no tree " + argument;
    });
}

remains bench::left() const
{
    const auto entries = [&](const char *name) -> std::size_t {
        const olv_sim::classifier_tree *tree = processor.tree(name);
        return tree != nullptr ? tree->size() : 0;
    };
    return {.responder_ids = processor.allocated(responder_namespace),
            .responder_entries = entries(responder_tree),
            .bind_entries = entries(bind_tree),
            .blocks = olv_sim::memory::in_use().live_blocks - blocks_before_,
            .patterns = olv_sim::patterns::live() - patterns_before_,
            .lock_held = lock_ != 0 ? olv_sim::semaphores::held(lock_) : 0,
            .initialised = olv_twamp_valid_module_handle(module) == 1,
            .registered = framework.registered(module).has_value()};
}

twamp_responder_handle *bench::create_responder(std::uint16_t param_a, std::uint16_t param_b)
{
    const olv_twamp_responder_info request{param_a, param_b};
    twamp_responder_handle *created = nullptr;
    EXPECT_EQ(quiet([&] { return olv_twamp_responder_create(module, &request, &created); }), 0u)
        << "no responder";
    keep(created);
    return created;
}

void bench::keep(void *block)
{
    if (block != nullptr && std::find(kept_.begin(), kept_.end(), block) == kept_.end()) {
        kept_.push_back(block);
    }
}

std::vector<std::uint8_t> bench::state_bytes(std::uint32_t namespace_id) const
{
    std::vector<std::uint8_t> bytes;
    for (const std::atomic<std::uint32_t> &word : processor.state(namespace_id)) {
        const std::uint32_t value = word.load();
        std::array<std::uint8_t, sizeof value> in_memory{};
        std::memcpy(in_memory.data(), &value, sizeof value);
        bytes.insert(bytes.end(), in_memory.begin(), in_memory.end());
    }
    return bytes;
}

void bench::set_state_bytes(std::uint32_t namespace_id, const std::vector<std::uint8_t> &bytes)
{
    ASSERT_EQ(hyx_se_state_set(processor.rte_handle(), namespace_id, 0, bytes.data(),
                               static_cast<std::uint32_t>(bytes.size())),
              0u);
}

void bench::set_context_magic(std::uint32_t magic)
{
    marked_ = module->ctx;
    std::memcpy(static_cast<void *>(marked_), &magic, sizeof magic);
}

void bench::set_log_words(std::uint32_t module_flags, std::uint32_t system_flags)
{
    module->log_flags = module_flags;
    foreign.log_flags = module_flags;
    framework.system()->log_flags = system_flags;
}

} // namespace olv_test
