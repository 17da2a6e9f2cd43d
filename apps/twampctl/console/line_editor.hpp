/**
 * @file line_editor.hpp
 * A line from a terminal, with history and completion.
 */
#ifndef OLV_TWAMPCTL_LINE_EDITOR_HPP
#define OLV_TWAMPCTL_LINE_EDITOR_HPP

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <histedit.h>

#include "apps/common/signal_watch.hpp"

namespace twampctl {

class line_editor {
  public:
    /** The words that may stand where the last of these, which is only begun, stands. */
    using completer = std::function<std::vector<std::string>(const std::vector<std::string> &)>;

    /** @param history_file  The file that lines are kept in; empty: none. @throw std::runtime_error  No
     * terminal. */
    line_editor(const olv_apps::signal_watch &signals, std::string prompt, std::string history_file,
                completer complete);
    /** Saves the history. */
    ~line_editor();
    line_editor(const line_editor &) = delete;
    line_editor &operator=(const line_editor &) = delete;

    /** A line without its newline; an empty one after Ctrl-C. @return Nothing at the end of the input, or when
     * a signal came. */
    [[nodiscard]] std::optional<std::string> read();

  private:
    static line_editor &of(EditLine *editor);
    static char *prompt_of(EditLine *editor);
    static int read_character(EditLine *editor, wchar_t *character);
    static unsigned char complete_word(EditLine *editor, int key);
    static unsigned char drop_line(EditLine *editor, int key);
    void bind_keys();
    [[nodiscard]] std::optional<std::string>
    candidates_before_cursor(std::vector<std::string> &candidates) const;

    const olv_apps::signal_watch &signals_;
    std::string prompt_;
    std::string history_file_;
    completer complete_;
    EditLine *editor_;
    History *history_;
    bool dropped_ = false; ///< Ctrl-C ended the line.
};

} // namespace twampctl

#endif
