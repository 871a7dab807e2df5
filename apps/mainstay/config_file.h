/// mainstay.conf: options of the command line by their names, and what commands do. TOML.
///
///     media = "/media/slot1"
///     [action.SystemCommand.6]
///     run = ["/sbin/reboot"]
#pragma once

#include <toml++/toml.h>
#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "device/catalogue.h"
#include "mainstay/actions/programs.h"

/// Reads mainstay.conf for the parser of the command line. Thread: one.
class ConfigFile : public CLI::Config {
  public:
    /// The file is written by people.
    std::string to_config(const CLI::App*, bool, bool, std::string) const override { return ""; }
    /// Keeps the actions for Actions. Throws CLI::ConfigError.
    std::vector<CLI::ConfigItem> from_config(std::istream& input) const override;

    /// What was read. Throws CLI::ConfigError for parameters and values that the model does not have.
    std::vector<actions::ProgramAction> Actions(const std::string& model) const;

  private:
    struct Entry {
        uint32_t line;
        std::string param;
        std::optional<std::string> value;  // both as written; nothing: all values
        std::vector<std::string> run;
        int64_t timeout = 60;

        std::string Name() const { return "action." + param + (value ? "." + *value : ""); }
    };
    void ReadActions(const toml::node& node) const;
    void ReadParam(const std::string& param, const toml::table& table) const;
    void ReadEntry(const std::string& param, const std::optional<std::string>& value,
                   const toml::table& table) const;
    static actions::ProgramAction Resolve(const Entry& entry, const vexa::Catalogue& catalogue);

    mutable std::vector<Entry> m_entries;  // the parser asks through a constant
};
