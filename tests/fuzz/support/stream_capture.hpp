/**
 * @file stream_capture.hpp
 * What is written to a stream of the C library while an operation runs. A stream in memory takes its place: no
 * system call, unlike a file.
 */
#ifndef OLV_FUZZ_STREAM_CAPTURE_HPP
#define OLV_FUZZ_STREAM_CAPTURE_HPP

#include <cstdio>
#include <cstdlib>
#include <string>

namespace olv_fuzz {

class stream_capture {
  public:
    /** @param stream  stdout or stderr. */
    explicit stream_capture(std::FILE *&stream) : place_(stream), memory_(open_memstream(&buffer_, &length_))
    {
        if (memory_ == nullptr) {
            std::perror("no stream in memory");
            std::abort();
        }
    }
    ~stream_capture()
    {
        (void)std::fclose(memory_);
        std::free(buffer_);
    }
    stream_capture(const stream_capture &) = delete;
    stream_capture &operator=(const stream_capture &) = delete;

    /** Run @p operation and keep what it writes. @return What it returns. */
    template <typename Operation> auto during(Operation &&operation)
    {
        (void)std::fflush(place_);
        (void)std::fseek(memory_, 0, SEEK_SET);
        std::FILE *const saved = place_;
        place_ = memory_;
        const auto result = operation();
        place_ = saved;
        (void)std::fflush(memory_);
        text_.assign(buffer_, length_);
        return result;
    }

    [[nodiscard]] const std::string &text() const { return text_; }

  private:
    std::FILE *&place_;
    char *buffer_ = nullptr;
    std::size_t length_ = 0;
    std::FILE *memory_;
    std::string text_;
};

} // namespace olv_fuzz

#endif
