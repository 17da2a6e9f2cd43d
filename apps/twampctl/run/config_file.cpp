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

constexpr std::size_t longest_file = 1U << 20; ///< Octets; no configuration is as long.

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

/** Takes the parser's events. An entry begins with its value; what stands inside a value that is refused is
 *  ignored. */
class event_taker final : public nlohmann::json_sax<nlohmann::json> {
  public:
    event_taker(config_document &document, const std::size_t &line) : document_(document), line_(line) {}

    bool null() override { return refuse("null"); }
    bool boolean(bool value) override { return take(value ? "true" : "false", true); }
    bool number_integer(number_integer_t value) override { return take(std::to_string(value)); }
    bool number_unsigned(number_unsigned_t value) override { return take(std::to_string(value)); }
    bool number_float(number_float_t /*value*/, const string_t &text) override { return take(text); }
    bool string(string_t &value) override { return take(value); }
    bool binary(binary_t & /*value*/) override { return false; } // JSON has none

    bool key(string_t &name) override
    {
        if (depth_ != 1) {
            return true;
        }
        const auto same = [&name](const config_entry &entry) { return entry.key == name; };
        const auto first = std::find_if(document_.entries.begin(), document_.entries.end(), same);
        if (first != document_.entries.end()) {
            add_error(name + ": this key is there already, in line " + std::to_string(first->line));
        }
        begun_ = {name, line_, {}};
        is_list_ = false;
        return true;
    }
    bool start_object(std::size_t /*elements*/) override
    {
        const bool taken = depth_ == 0 || refuse("an object");
        ++depth_;
        return taken;
    }
    bool start_array(std::size_t /*elements*/) override
    {
        const bool taken = depth_ == 1 || refuse("a list");
        if (depth_ == 1) {
            document_.entries.push_back(begun_);
            is_list_ = true;
            element_ = 0;
        }
        ++depth_;
        return taken;
    }
    bool end_object() override { return end_array(); }
    bool end_array() override
    {
        --depth_;
        return true;
    }

    bool parse_error(std::size_t /*position*/, const std::string &token,
                     const nlohmann::json::exception &error) override
    {
        add_error(reason_of(token, error));
        return false;
    }

  private:
    bool take(const std::string &text, bool is_switch = false)
    {
        if (text.find('\0') != std::string::npos) {
            return refuse("a text with a zero byte");
        }
        if (depth_ == 1) {
            document_.entries.push_back(begun_);
        }
        if (is_value()) {
            document_.entries.back().values.push_back({name_of_value(), text, line_, is_switch});
        }
        return is_in_object();
    }

    bool refuse(const char *kind)
    {
        if (is_value()) {
            add_error(name_of_value() + ": a value is wanted, not " + kind);
        }
        return is_in_object();
    }

    [[nodiscard]] bool is_value() const { return depth_ == 1 || (depth_ == 2 && is_list_); }

    std::string name_of_value()
    {
        return depth_ == 1 ? begun_.key : begun_.key + "[" + std::to_string(element_++) + "]";
    }

    bool is_in_object()
    {
        if (depth_ == 0) {
            add_error("all of the file has to be an object: { ... }");
        }
        return depth_ != 0;
    }

    void add_error(const std::string &reason) { document_.errors.push_back({line_, reason}); }

    config_document &document_;
    const std::size_t &line_;
    config_entry begun_;
    bool is_list_ = false; ///< The value of what was begun.
    std::size_t element_ = 0;
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
