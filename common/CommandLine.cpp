// SPDX-License-Identifier: Apache-2.0
#include "common/CommandLine.h"

#include <CLI/CLI.hpp>

#include "common/Failure.h"

namespace common {

namespace {

template <typename Number>
CLI::Option* AddNumber(CLI::App& app, const std::string& name, Number& value, Number lowest,
                       Number highest, const std::string& help) {
    return app.add_option(name, value, help)->check(CLI::Range(lowest, highest));
}

}  // namespace

CommandLine::Word CommandLine::Word::Required() {
    option_->required();
    return *this;
}

CommandLine::Word CommandLine::Word::Named(const Text& name) {
    option_->type_name(name);
    return *this;
}

CommandLine::Word CommandLine::Word::WithDefault() {
    option_->capture_default_str();
    return *this;
}

CommandLine::Word CommandLine::Word::WithDefault(const Text& shown) {
    option_->default_str(shown);
    return *this;
}

CommandLine::Word CommandLine::Word::OneOf(const Texts& values) {
    option_->check(CLI::IsMember(values));
    return *this;
}

CommandLine::Word CommandLine::Word::Checked(const std::function<Text(const Text&)>& check) {
    option_->check(check);
    return *this;
}

CommandLine::CommandLine(const Text& about, const Text& program, const Text& version)
    : owned_(std::make_shared<CLI::App>(about, program)), app_(owned_.get()) {
    if (!version.empty()) {
        app_->set_version_flag("--version", version);
    }
}

CommandLine::Word CommandLine::Flag(const Text& name, bool& given, const Text& help) {
    return Word(app_->add_flag(name, given, help));
}

CommandLine::Word CommandLine::Value(const Text& name, Text& value, const Text& help) {
    return Word(app_->add_option(name, value, help));
}

CommandLine::Word CommandLine::Value(const Text& name, std::optional<Text>& value,
                                     const Text& help) {
    // CLI11 by itself takes an empty text for none.
    return Value(
        name, [&value](const Text& text) { value = text; }, help);
}

CommandLine::Word CommandLine::Value(const Text& name, Texts& values, const Text& help) {
    CLI::Option* const option = app_->add_option(name, values, help);
    return Word(option->multi_option_policy(CLI::MultiOptionPolicy::TakeAll));
}

CommandLine::Word CommandLine::Value(const Text& name, const std::function<void(const Text&)>& take,
                                     const Text& help) {
    return Word(app_->add_option_function(name, take, help));
}

CommandLine::Word CommandLine::Each(const Text& name, const std::function<void(const Text&)>& take,
                                    const Text& help) {
    const std::function<void(const Texts&)> take_all = [take](const Texts& values) {
        for (const Text& value : values) {
            take(value);
        }
    };
    CLI::Option* const option = app_->add_option_function(name, take_all, help);
    return Word(
        option->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)->allow_extra_args(false));
}

CommandLine::Word CommandLine::Value(const Text& name, int& value, int lowest, int highest,
                                     const Text& help) {
    return Word(AddNumber(*app_, name, value, lowest, highest, help));
}

CommandLine::Word CommandLine::Value(const Text& name, unsigned& value, unsigned lowest,
                                     unsigned highest, const Text& help) {
    return Word(AddNumber(*app_, name, value, lowest, highest, help));
}

CommandLine::Word CommandLine::Value(const Text& name, std::int64_t& value, std::int64_t lowest,
                                     std::int64_t highest, const Text& help) {
    return Word(AddNumber(*app_, name, value, lowest, highest, help));
}

CommandLine::Word CommandLine::Value(const Text& name, double& value, double lowest, double highest,
                                     const Text& help) {
    return Word(AddNumber(*app_, name, value, lowest, highest, help));
}

void CommandLine::Asked(const Text& name, const std::function<Text()>& answer, const Text& help) {
    app_->add_flag_callback(
        name, [answer] { throw CLI::CallForVersion(answer(), 0); }, help);
}

CommandLine CommandLine::Command(const Text& name, const Text& help) {
    app_->require_subcommand(1);
    return CommandLine(app_->add_subcommand(name, help));
}

bool CommandLine::IsGiven() const {
    return app_->parsed();
}

void CommandLine::LetTheLastCount() {
    app_->option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
}

void CommandLine::EndWithWords() {
    app_->positionals_at_end();
}

void CommandLine::Footer(const Text& text) {
    app_->footer(text);
}

CommandLine::Text CommandLine::Help() const {
    return app_->help();
}

std::optional<int> CommandLine::Parse(int argc, const char* const* argv, int status,
                                      const Text& hint) {
    try {
        app_->parse(argc, argv);
    } catch (const CLI::Success& asked) {
        return app_->exit(asked);
    } catch (const CLI::ParseError& error) {
        throw Failure(error.what() + hint, status);
    } catch (const Failure& mistake) {
        throw Failure(mistake.what() + hint, status);
    }
    return std::nullopt;
}

}  // namespace common
