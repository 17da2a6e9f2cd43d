/**
 * @file document_output.hpp
 * Standard output for one document alone.
 */
#ifndef OLV_TWAMPCTL_DOCUMENT_OUTPUT_HPP
#define OLV_TWAMPCTL_DOCUMENT_OUTPUT_HPP

#include <string>

#include "net/descriptor.hpp"

namespace twampctl {

/** While it lives, what the program and the library print to standard output goes to standard error, so that a
 *  program can read the document. */
class document_output {
  public:
    /** @param alone  false: nothing is moved, and there is no document.
     *  @throw std::runtime_error  One line: there is no standard output or no standard error. */
    explicit document_output(bool alone);
    ~document_output();
    document_output(const document_output &) = delete;
    document_output &operator=(const document_output &) = delete;

    /** Write to what standard output was. @throw std::runtime_error  It does not take all of it. */
    void write(const std::string &document) const;

  private:
    olv_net::descriptor output_;
};

} // namespace twampctl

#endif
