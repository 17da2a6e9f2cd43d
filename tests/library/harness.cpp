#include "harness.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sys/mman.h>
#include <unistd.h>

#include "olv_sim/faults.hpp"
#include "olv_sim/process.hpp"
#include "olv_sim/resources.hpp"
#include "olv_sim/violations.hpp"
#include "silence.hpp"

namespace olv_test {

namespace {

/** Takes events together with how much was printed and called before. */
class watching_sink : public olv_sim::trace_sink {
  public:
    struct notice {
        seen_event seen;
        off_t printed;
        std::size_t calls;
    };

    explicit watching_sink(const olv_module_handle &module) : module_(module) {}

    void event(const olv_sim::trace_event &event) override
    {
        std::fflush(stdout);
        const bool locked = module_.lock != 0 && olv_sim::semaphores::held(module_.lock) != 0;
        notices_.push_back({{event, olv_twamp_valid_module_handle(&module_) == 1, locked},
                            lseek(STDOUT_FILENO, 0, SEEK_CUR),
                            olv_sim::call_record::calls().size()});
    }

    [[nodiscard]] const std::vector<notice> &notices() const { return notices_; }

  private:
    const olv_module_handle &module_;
    std::vector<notice> notices_;
};

bool is_status_text(const olv_sim::trace_event &event)
{
    return event.format == "%s\n" && event.level != olv_sim::trace_event::forced_error;
}

} // namespace

std::ostream &operator<<(std::ostream &stream, const remains &value)
{
    return stream << value.responder_ids << " responder IDs, " << value.responder_entries
                  << " responder entries, " << value.bind_entries << " bind entries, " << value.blocks
                  << " blocks, " << value.patterns << " patterns, lock held " << value.lock_held
                  << (value.initialised ? ", initialised" : ", not initialised")
                  << (value.registered ? ", registered" : ", not registered") << ", log word "
                  << value.log_flags;
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
    for (ssize_t got = 0; (got = read(file, chunk.data(), chunk.size())) > 0;) {
        text.append(chunk.data(), static_cast<std::size_t>(got));
    }
    close(file);
    return text;
}

std::uint32_t quiet(const std::function<std::uint32_t()> &operation)
{
    const silence nothing_printed;
    return operation();
}

std::vector<olv_sim::trace_event> observation::events() const
{
    std::vector<olv_sim::trace_event> all;
    for (const episode &each : episodes) {
        if (each.event) {
            all.push_back(each.event->event);
        }
    }
    return all;
}

std::vector<std::string> observation::calls() const
{
    std::vector<std::string> all;
    for (const episode &each : episodes) {
        for (const olv_sim::recorded_call &made : each.calls) {
            all.push_back(std::string(olv_sim::call_name(made.which)) + "(" + made.arguments + ")");
        }
    }
    return all;
}

void expect_source_lines_agree(const observation &seen)
{
    const olv_sim::trace_event *before = nullptr;
    for (const episode &each : seen.episodes) {
        if (!each.event) {
            continue;
        }
        const olv_sim::trace_event &event = each.event->event;
        const std::string place = " " + event.file + ":";
        const std::size_t at = each.console.find(place);
        if (at != std::string::npos) {
            EXPECT_EQ(std::strtoul(each.console.c_str() + at + place.size(), nullptr, 10), event.line)
                << each.console;
        }
        if (is_status_text(event)) {
            ASSERT_NE(before, nullptr) << "status text without a message: " << event.text;
            EXPECT_EQ(event.level, before->level) << event.text;
            EXPECT_EQ(event.file, before->file) << event.text;
            EXPECT_EQ(event.line, before->line) << event.text;
            EXPECT_EQ(event.record, before->record) << event.text;
        }
        before = &event;
    }
}

olv_sim::classifier_program bench_program(std::uint32_t responders)
{
    auto program = olv_sim::classifier_program::twamp(responders, 16);
    for (auto &function : program.tree_functions) {
        function.id = function.name == responder_tree                           ? responder_tree_id
                      : function.name == bind_tree                              ? bind_tree_id
                      : function.name == "olv_twamp.twamp_to_ip_direct_imc"     ? ip_direct_imc_id
                      : function.name == "olv_twamp.twamp_to_ipv6_indirect_imc" ? ipv6_indirect_imc_id
                                                                                : lli_processing_id;
    }
    return program;
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
      lock_(module->lock),
      system_(module->system)
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
    if (olv_sim::memory::is_live(responder)) {
        keep(responder);
    }
    for (void *block : kept_) {
        hyx_nvm_free(block);
    }
    if (lock_ != 0 && olv_sim::semaphores::held(lock_) != 0) {
        ADD_FAILURE() << "the module lock is still held";
        hyx_sem_post(lock_);
    }
    module->lock = lock_;
    module->system = system_;
    restore_context();
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
    watching_sink sink(*module);
    olv_sim::tracer::set_sink(&sink);
    olv_sim::call_record::start(kinds);
    const std::string console = captured_console([&] { seen.status = operation(); });
    olv_sim::call_record::stop();
    olv_sim::tracer::set_sink(nullptr);

    seen.console = without_source_lines(console);
    const std::vector<olv_sim::recorded_call> calls = olv_sim::call_record::calls();
    std::size_t printed = 0;
    auto next_call = calls.begin();
    for (const watching_sink::notice &each : sink.notices()) {
        const auto printed_before = static_cast<std::size_t>(each.printed);
        const auto called_before = calls.begin() + static_cast<std::ptrdiff_t>(each.calls);
        seen.episodes.push_back(
            {{next_call, called_before}, console.substr(printed, printed_before - printed), each.seen});
        printed = printed_before;
        next_call = called_before;
    }
    seen.episodes.push_back({{next_call, calls.end()}, console.substr(printed), std::nullopt});
    return seen;
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
            .registered = framework.registered(module).has_value(),
            .log_flags = module->log_flags};
}

twamp_responder_handle *bench::create_responder(std::uint16_t param_a, std::uint16_t param_b)
{
    twamp_responder_handle *const made = create_unkept_responder(param_a, param_b);
    keep(made);
    return made;
}

twamp_responder_handle *bench::create_unkept_responder(std::uint16_t param_a, std::uint16_t param_b)
{
    const olv_twamp_responder_info request{param_a, param_b};
    twamp_responder_handle *made = nullptr;
    EXPECT_EQ(quiet([&] { return olv_twamp_responder_create(module, &request, &made); }), 0u) << "no responder";
    ++created_;
    return made;
}

void bench::learn(std::uint32_t tree_id, std::optional<std::uint32_t> key, std::uint32_t action_0,
                  std::uint32_t action_1)
{
    olv_ptn pattern{};
    olv_ptn_action action{{action_0, action_1, 0}};
    EXPECT_EQ(olv_ptn_new(24, &pattern), 0u);
    if (key) {
        EXPECT_EQ(olv_ptn_extend(&pattern, *key, 24), 0u);
    }
    EXPECT_EQ(hyx_ptn_learn(module->rte_handle, tree_id, &pattern, &action), 0u);
    olv_ptn_free(pattern);
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

void bench::restore_context()
{
    if (marked_ != nullptr) {
        set_context_magic(0x18496124);
        marked_ = nullptr;
    }
}

std::uint32_t bench::responder_ns() const
{
    std::uint32_t found = 0;
    EXPECT_EQ(hyx_rsrc_find(module->rte_handle, 0, responder_namespace, &found), 0u);
    return found;
}

void bench::set_log_words(std::uint32_t module_flags, std::uint32_t system_flags)
{
    module->log_flags = module_flags;
    foreign.log_flags = module_flags;
    framework.system()->log_flags = system_flags;
}

void bench::release_lock()
{
    olv_sim::faults::clear_all();
    if (lock_ != 0 && olv_sim::semaphores::held(lock_) != 0) {
        EXPECT_EQ(hyx_sem_post(lock_), 0u);
    }
}

} // namespace olv_test
