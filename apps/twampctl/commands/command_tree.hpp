/**
 * @file command_tree.hpp
 * The commands, their options and their help: one tree for command lines, scripts, the shell, and completion.
 */
#ifndef OLV_TWAMPCTL_COMMAND_TREE_HPP
#define OLV_TWAMPCTL_COMMAND_TREE_HPP

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "apps/common/command_line.hpp"
#include "apps/twampctl/commands/command_context.hpp"

namespace twampctl {

/** What an option's value names, for completion; shown in the help. */
namespace value_kind {
inline constexpr const char *responder = "RESPONDER";
inline constexpr const char *processor = "PROCESSOR";
inline constexpr const char *listener = "LISTENER";
inline constexpr const char *call = "CALL";
inline constexpr const char *tree = "TREE";
inline constexpr const char *file = "FILE";
} // namespace value_kind

/** A command as it is found in the help. */
struct command_text {
    std::string name;
    std::string summary;
    std::vector<std::string> examples;
};

/** Made anew for each command that is read: options keep the values that they were given. */
class command_tree {
  public:
    using action = std::function<void(command_context &)>;

    explicit command_tree(command_context &context);
    ~command_tree();
    command_tree(const command_tree &) = delete;
    command_tree &operator=(const command_tree &) = delete;

    [[nodiscard]] olv_apps::command root() { return olv_apps::command{*root_}; }

    /** A first word for several commands. */
    olv_apps::command add_group(const std::string &name, const std::string &summary);
    /** A command below a group or the root; @p work runs when it was given. */
    olv_apps::command add(olv_apps::command parent, const command_text &text, const action &work);
    olv_apps::command add(const command_text &text, const action &work) { return add(root(), text, work); }

    /** Read one command and run it. @throw usage_error, std::runtime_error. */
    void run(const std::vector<std::string> &words);
    /** The help of a command, a group, or all. @throw usage_error  There is no such command. */
    [[nodiscard]] std::string help(const std::vector<std::string> &words);

    /** What may come next after these words, the last of which is only begun, or empty. */
    [[nodiscard]] std::vector<std::string> completions(const std::vector<std::string> &words);

  private:
    /** The command that the first of these words name. @throw usage_error  They name none. */
    CLI::App &find(const std::vector<std::string> &words, bool whole);
    [[nodiscard]] std::string advice(const CLI::App &command) const;
    [[nodiscard]] std::string overview() const;
    [[nodiscard]] std::vector<std::string> values_of(const CLI::Option &option, const std::string &begun) const;
    [[nodiscard]] std::vector<std::string> argument_candidates(const CLI::App &command,
                                                               const std::vector<std::string> &words) const;

    command_context &context_;
    std::unique_ptr<CLI::App> root_;
    action chosen_;
};

} // namespace twampctl

#endif
