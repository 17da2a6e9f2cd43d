#include "apps/twampctl/console/line_editor.hpp"

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cwchar>
#include <stdexcept>
#include <string_view>

#include <poll.h>
#include <unistd.h>

#include "apps/twampctl/console/interpreter.hpp"

namespace twampctl {
namespace {

constexpr int remembered_lines = 1000;
constexpr std::size_t terminal_width = 80;

/** What all of these begin with. */
std::string common_start(const std::vector<std::string> &words)
{
    std::string start = words.front();
    for (const std::string &each : words) {
        const auto differing = std::mismatch(start.begin(), start.end(), each.begin(), each.end());
        start.erase(differing.first, start.end());
    }
    const std::string &whole = words.front();
    while (start.size() < whole.size() && (static_cast<unsigned char>(whole[start.size()]) & 0xC0u) == 0x80u) {
        start.pop_back(); // to the beginning of a UTF-8 character
    }
    return start;
}

/** As it has to be typed outside quotes. */
std::string escaped(const std::string &text)
{
    std::string typed;
    for (const char each : text) {
        if (std::string_view{" \t\"'\\"}.find(each) != std::string_view::npos) {
            typed += '\\';
        }
        typed += each;
    }
    return typed;
}

/** Below the line that is being edited. */
void print_columns(const std::vector<std::string> &words)
{
    std::size_t width = 0;
    for (const std::string &each : words) {
        width = std::max(width, each.size() + 2);
    }
    const std::size_t columns = std::max<std::size_t>(1, terminal_width / width);
    for (std::size_t index = 0; index < words.size(); ++index) {
        std::printf("%s%-*s", index % columns == 0 ? "\n" : "", static_cast<int>(width), words[index].c_str());
    }
    std::printf("\n");
}

} // namespace

line_editor::line_editor(const olv_apps::signal_watch &signals, std::string prompt, std::string history_file,
                         completer complete)
    : signals_(signals),
      prompt_(std::move(prompt)),
      history_file_(std::move(history_file)),
      complete_(std::move(complete)),
      editor_(nullptr),
      history_(nullptr)
{
    (void)std::setlocale(LC_CTYPE, ""); // without one, names outside ASCII are shown in octal
    editor_ = el_init("twampctl", stdin, stdout, stderr);
    history_ = history_init();
    if (editor_ == nullptr || history_ == nullptr) {
        throw std::runtime_error("cannot edit lines on this terminal");
    }
    HistEvent event;
    (void)history(history_, &event, H_SETSIZE, remembered_lines); // fails for negative sizes only
    (void)history(history_, &event, H_SETUNIQUE, 1);
    if (!history_file_.empty()) {
        (void)history(history_, &event, H_LOAD, history_file_.c_str()); // the first time there is none
    }
    bind_keys();
}

void line_editor::bind_keys()
{
    (void)el_set(editor_, EL_CLIENTDATA, this); // these fail for unknown names only
    (void)el_set(editor_, EL_PROMPT, prompt_of);
    (void)el_set(editor_, EL_EDITOR, "emacs");
    (void)el_set(editor_, EL_HIST, history, history_);
    (void)el_set(editor_, EL_GETCFN, read_character);
    // As wide texts: of others, libedit makes copies that it never frees.
    (void)el_wset(editor_, EL_ADDFN, L"complete-word", L"Complete a word", complete_word);
    (void)el_wset(editor_, EL_ADDFN, L"drop-line", L"Drop the line", drop_line);
    (void)el_set(editor_, EL_BIND, "^I", "complete-word", nullptr);
    (void)el_set(editor_, EL_BIND, "^R", "em-inc-search-prev", nullptr);
    // While a line is edited Ctrl-C is a key; while a command runs it is a signal.
    (void)el_set(editor_, EL_SETTY, "-d", "-isig", nullptr);
    (void)el_set(editor_, EL_BIND, "^C", "drop-line", nullptr);
}

line_editor::~line_editor()
{
    HistEvent event;
    if (!history_file_.empty() && history(history_, &event, H_SAVE, history_file_.c_str()) < 0) {
        (void)std::fprintf(stderr, "the history could not be saved to %s\n", history_file_.c_str());
    }
    history_end(history_);
    el_end(editor_);
}

std::optional<std::string> line_editor::read()
{
    el_resize(editor_); // the terminal may have changed while a command ran
    dropped_ = false;
    // libedit does this after its prompt: what is typed between the two would be shown twice.
    (void)el_set(editor_, EL_PREP_TERM, 1); // where it fails, el_gets() does
    int length = 0;
    const char *text = el_gets(editor_, &length);
    if (dropped_) {
        std::printf("^C\n");
        return "";
    }
    if (text == nullptr || length <= 0) {
        return std::nullopt;
    }
    std::string line{text, static_cast<std::size_t>(length)};
    line.erase(line.find_last_not_of("\r\n") + 1);
    if (!line.empty()) {
        HistEvent event;
        (void)history(history_, &event, H_ENTER, line.c_str()); // a full history forgets its oldest line
    }
    return line;
}

line_editor &line_editor::of(EditLine *editor)
{
    void *self = nullptr;
    (void)el_get(editor, EL_CLIENTDATA, &self); // was set when it was made
    return *static_cast<line_editor *>(self);
}

char *line_editor::prompt_of(EditLine *editor)
{
    return of(editor).prompt_.data();
}

/** Waits for signals as well. @return 1; 0 at the end; -1 for an error. */
int line_editor::read_character(EditLine *editor, wchar_t *character)
{
    std::mbstate_t state{};
    for (;;) {
        std::array<pollfd, 2> watched{
            {{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0},
             {.fd = of(editor).signals_.descriptor(), .events = POLLIN, .revents = 0}}};
        if (poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR) {
            return -1;
        }
        if ((watched[1].revents & POLLIN) != 0) {
            return 0;
        }
        if (watched[0].revents == 0) {
            continue;
        }
        char byte = 0;
        const ssize_t length = ::read(STDIN_FILENO, &byte, 1);
        if (length <= 0) {
            return static_cast<int>(length);
        }
        const std::size_t taken = std::mbrtowc(character, &byte, 1, &state);
        if (taken == static_cast<std::size_t>(-1)) {
            state = {}; // no character of this terminal's: drop the byte
        } else if (taken != static_cast<std::size_t>(-2)) {
            return 1;
        }
    }
}

std::optional<std::string> line_editor::candidates_before_cursor(std::vector<std::string> &candidates) const
{
    const LineInfo *line = el_line(editor_);
    const std::string text{line->buffer, line->cursor};
    try {
        std::vector<std::string> words = words_of(text);
        if (words.empty() || text.back() == ' ') {
            words.emplace_back();
        }
        candidates = complete_(words);
        return words.back();
    } catch (const std::exception &) {
        return std::nullopt; // an open quote
    }
}

unsigned char line_editor::complete_word(EditLine *editor, int /*key*/)
{
    std::vector<std::string> candidates;
    const std::optional<std::string> begun = of(editor).candidates_before_cursor(candidates);
    if (!begun || candidates.empty()) {
        return CC_REFRESH_BEEP;
    }
    std::string rest = escaped(common_start(candidates).substr(begun->size()));
    if (candidates.size() == 1 && candidates.front().back() != '/') {
        rest += ' ';
    }
    if (!rest.empty()) {
        return el_insertstr(editor, rest.c_str()) == 0 ? CC_REFRESH : CC_REFRESH_BEEP;
    }
    print_columns(candidates);
    return CC_REDISPLAY;
}

unsigned char line_editor::drop_line(EditLine *editor, int /*key*/)
{
    of(editor).dropped_ = true;
    return CC_NEWLINE;
}

} // namespace twampctl
