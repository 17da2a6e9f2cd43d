#include "apps/twampctl/console/document_output.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

namespace twampctl {

document_output::document_output(bool alone)
{
    if (!alone) {
        return;
    }
    (void)std::fflush(stdout); // an error that this meets shows at exit
    output_ = olv_net::descriptor{fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)};
    if (!output_.is_open() || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
        throw std::runtime_error(std::string("cannot keep standard output for the figures: ") +
                                 std::strerror(errno));
    }
}

document_output::~document_output()
{
    if (output_.is_open()) {
        (void)std::fflush(stdout);                   // an error shows at exit
        (void)dup2(output_.number(), STDOUT_FILENO); // it was there before
    }
}

void document_output::write(const std::string &document) const
{
    std::string_view left = document;
    while (!left.empty()) {
        const ssize_t written = ::write(output_.number(), left.data(), left.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            throw std::runtime_error(std::string("the figures are not complete: ") + std::strerror(errno));
        }
        left.remove_prefix(static_cast<std::size_t>(written));
    }
}

} // namespace twampctl
