#include "sequence.hpp"

#include <cstdio>
#include <dlfcn.h>

namespace {

/** Told of calls while an operation is watched. */
std::function<void(const char *name, const void *block)> told;

template <typename Function> Function platform(const char *name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

void tell(const char *name, const void *block)
{
    if (told) {
        told(name, block);
    }
}

/** Writes events where the console is written. */
class printing_sink : public olv_sim::trace_sink {
  public:
    explicit printing_sink(const olv_module_handle &module) : module_(module) {}

    void event(const olv_sim::trace_event &event) override
    {
        if (event.level == olv_sim::trace_event::forced_error) {
            std::printf("<forced error>\n");
        } else {
            const bool initialised = module_.ctx != nullptr && olv_twamp_valid_module_handle(&module_) == 1;
            std::printf("<trace %u%s>\n", static_cast<unsigned>(event.level),
                        initialised ? ", initialised" : "");
        }
    }

  private:
    const olv_module_handle &module_;
};

} // namespace

// These stand before the platform's own, to which they hand on.
extern "C" __attribute__((visibility("default"))) void hyx_gettime(hyx_time *now)
{
    tell("hyx_gettime", nullptr);
    static const auto gettime = platform<void (*)(hyx_time *)>("hyx_gettime");
    gettime(now);
}

extern "C" __attribute__((visibility("default"))) void hyx_nvm_free(void *block)
{
    tell("hyx_nvm_free", block);
    static const auto free = platform<void (*)(void *)>("hyx_nvm_free");
    free(block);
}

namespace olv_test {

std::string sequence_of(bench &b, const std::function<std::uint32_t()> &operation,
                        const std::function<void(const void *block)> &freed)
{
    printing_sink sink(*b.module);
    told = [&freed](const char *name, const void *block) {
        if (block != nullptr && freed) {
            freed(block);
        }
        std::printf("<%s>\n", name);
    };
    olv_sim::tracer::set_sink(&sink);
    std::string text = captured_console([&] { (void)operation(); });
    olv_sim::tracer::set_sink(nullptr);
    told = nullptr;
    return without_source_lines(text);
}

} // namespace olv_test
