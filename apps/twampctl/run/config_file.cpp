#include "apps/twampctl/run/config_file.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace twampctl {
namespace {

constexpr std::size_t longest_file = 1U << 20; ///< Octets; what is longer is something else.

/** Reads a text and knows the line of what was read last. */
class counting_iterator {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char *;
    using reference = const char &;

    explicit counting_iterator(const char *at, std::size_t *line = nullptr) : at_(at), line_(line) {}
    reference operator*() const { return *at_; }
    counting_iterator &operator++()
    {
        *line_ += after_newline_ ? 1 : 0;
        after_newline_ = *at_ == '\n';
        ++at_;
        return *this;
    }
    bool operator==(const counting_iterator &other) const { return at_ == other.at_; }
    bool operator!=(const counting_iterator &other) const { return at_ != other.at_; }

  private:
    const char *at_;
    std::size_t *line_;
    bool after_newline_ = false; ///< The next character is on another line.
};

/** What is wrong, without the parser's own name of the error and its place. */
std::string reason_of(const std::string &token, const std::exception &error)
{
    const std::string message = error.what();
    if (message.find("invalid literal") != std::string::npos &&
        (token.ends_with('/') || token.ends_with('#'))) {
        return "JSON has no comments";
    }
    const std::size_t place = message.find("column ");
    const std::size_t start = place == std::string::npos ? message.find("] ") : message.find(": ", place);
    return start == std::string::npos ? message : message.substr(start + 2);
}

/** Takes the parser's events. Values below the second level are no one's: their list or object is refused. */
class event_taker final : public nlohmann::json_sax<nlohmann::json> {
  public:
    event_taker(config_document &document, const std::size_t &line) : document_(document), line_(line) {}

    bool null() override { return take(config_kind::null, "null"); }
    bool boolean(bool value) override { return take(config_kind::boolean, value ? "true" : "false"); }
    bool number_integer(number_integer_t value) override
    {
        return take(config_kind::whole_number, std::to_string(value));
    }
    bool number_unsigned(number_unsigned_t value) override
    {
        return take(config_kind::whole_number, std::to_string(value));
    }
    bool number_float(number_float_t /*value*/, const string_t &text) override
    {
        return take(config_kind::number, text);
    }
    bool string(string_t &value) override { return take(config_kind::text, value); }
    bool binary(binary_t & /*value*/) override { return false; } // JSON has none

    bool start_object(std::size_t /*elements*/) override
    {
        const bool taken = depth_ == 0 || take(config_kind::object, "");
        ++depth_;
        return taken;
    }
    bool end_object() override
    {
        --depth_;
        return true;
    }
    bool start_array(std::size_t /*elements*/) override
    {
        if (depth_ == 1) {
            document_.entries.back().is_list = true;
        } else if (!take(config_kind::list, "")) {
            return false;
        }
        ++depth_;
        return true;
    }
    bool end_array() override
    {
        --depth_;
        return true;
    }

    bool key(string_t &name) override
    {
        if (depth_ != 1) {
            return true;
        }
        const auto same = [&name](const config_entry &entry) { return entry.key == name; };
        const auto first = std::find_if(document_.entries.begin(), document_.entries.end(), same);
        if (first != document_.entries.end()) {
            document_.errors.push_back(
                {line_, name + ": this key is there already, in line " + std::to_string(first->line)});
        }
        document_.entries.push_back({name, line_, false, {}});
        return true;
    }

    bool parse_error(std::size_t /*position*/, const std::string &token,
                     const nlohmann::json::exception &error) override
    {
        document_.errors.push_back({line_, reason_of(token, error)});
        return false;
    }

  private:
    bool take(config_kind kind, const std::string &text)
    {
        if (depth_ == 0) {
            document_.errors.push_back({line_, "all of the file has to be an object: { ... }"});
            return false;
        }
        config_entry &entry = document_.entries.back();
        if (depth_ == 1 || (depth_ == 2 && entry.is_list)) {
            entry.values.push_back({kind, text, line_});
        }
        return true;
    }

    config_document &document_;
    const std::size_t &line_;
    std::size_t depth_ = 0;
};

} // namespace

config_document parse_config(std::string_view text)
{
    config_document document;
    std::size_t line = 1;
    event_taker taker{document, line};
    // What is wrong is in the document.
    (void)nlohmann::json::sax_parse(counting_iterator{text.data(), &line},
                                    counting_iterator{text.data() + text.size()}, &taker);
    return document;
}

std::string read_config_file(const std::string &name)
{
    const auto refuse = [&name](const char *reason) {
        throw std::runtime_error("cannot read the configuration " + name + ": " + reason);
    };
    const std::unique_ptr<std::FILE, int (*)(std::FILE *)> file{std::fopen(name.c_str(), "re"), std::fclose};
    if (!file) {
        refuse(std::strerror(errno));
    }
    std::string text;
    std::array<char, 4096> part{};
    while (const std::size_t length = std::fread(part.data(), 1, part.size(), file.get())) {
        text.append(part.data(), length);
        if (text.size() > longest_file) {
            refuse("it is longer than 1 MiB");
        }
    }
    if (std::ferror(file.get()) != 0) {
        refuse(std::strerror(errno));
    }
    return text;
}

} // namespace twampctl
