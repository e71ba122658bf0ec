// Command-line parsing of udmlgen. CLI11 knows the options and writes the help; every value is
// taken as text and checked here, so that each mistake becomes a UsageError in our own words that
// names the option, the value given and what is accepted (the command then exits with status 2).
#include "Options.h"

#include "EditDistance.h"
#include "HelpText.h"

#include "platform/repository/SMPTypeIDDatabase.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <iostream>
#include <map>

#ifndef UDML_VERSION
#define UDML_VERSION "unknown"
#endif

namespace udmlgen {
namespace {

const std::map<std::string, int32_t> kRequestTypes = {
    {"database", kTIDADatabase},     {"catalog", kTIDACatalog}, {"schema", kTIDASchema},
    {"table", kTIDATable},           {"column", kTIDAColumn},   {"table-key", kTIDATableKey},
    {"foreign-key", kTIDAForeignKey}};

const std::map<std::string, int> kStatementKinds = {{"catalog", 0x0002},     {"schema", 0x0004},
                                                    {"table", 0x0008},       {"column", 0x0010},
                                                    {"foreign-key", 0x0020}, {"table-key", 0x0040}};

// The options that may be given more than once, each time with one more value.
const char* const kRepeatable[] = {"--existing",        "--join-within-module", "--include-catalog",
                                   "--exclude-catalog", "--include-schema",     "--exclude-schema",
                                   "--include-table",   "--exclude-table"};

std::string Quote(const std::string& text) {
    return "'" + text + "'";
}

std::string Trim(const std::string& text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos)
        return "";
    const size_t last = text.find_last_not_of(" \t");
    return text.substr(first, last - first + 1);
}

std::string Lower(std::string text) {
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

bool AllOf(const std::string& text, const char* allowed) {
    return !text.empty() && text.find_first_not_of(allowed) == std::string::npos;
}

// The value of digits in `base`, or nothing when it exceeds `limit`.
std::optional<long> DigitsValue(const std::string& digits, int base, long limit) {
    long value = 0;
    for (char c : digits) {
        const int digit = std::isdigit(static_cast<unsigned char>(c))
                              ? c - '0'
                              : std::tolower(static_cast<unsigned char>(c)) - 'a' + 10;
        value = value * base + digit;
        if (value > limit)
            return std::nullopt;
    }
    return value;
}

// `--name=` is the empty value; CLI11 would take the next argument instead, so it is split into
// the option and an empty argument, which CLI11 takes as the value.
std::vector<std::string> SplitEmptyValues(int argc, char** argv) {
    std::vector<std::string> arguments;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (argument.size() > 3 && argument.compare(0, 2, "--") == 0 && argument.back() == '=' &&
            argument.find('=') == argument.size() - 1) {
            arguments.push_back(argument.substr(0, argument.size() - 1));
            arguments.emplace_back();
        } else {
            arguments.push_back(argument);
        }
    }
    return arguments;
}

// Every long option and subcommand a user may mean, for suggestions.
std::vector<std::string> KnownNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options())
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
    for (const CLI::App* command : app.get_subcommands({}))
        names.push_back(command->get_name());
    return names;
}

std::string Suggestion(const std::string& typed, const std::vector<std::string>& names) {
    std::string best;
    size_t bestDistance = std::string::npos;
    const std::string bare = typed.substr(0, typed.find('='));
    for (const std::string& name : names) {
        const size_t distance = EditDistance(bare, name, [](char x, char y) { return x == y; });
        if (distance < bestDistance) {
            bestDistance = distance;
            best = name;
        }
    }
    // A guess further off than a third of the name helps no one.
    if (best.empty() || bestDistance > std::max<size_t>(2, best.size() / 3))
        return "";
    return "; did you mean " + best + "?";
}

// What is left over after parsing: an unknown option, or a value no option took.
[[noreturn]] void RejectExtra(const CLI::App& app, const std::vector<std::string>& arguments,
                              const std::string& extra) {
    if (extra.size() > 1 && extra[0] == '-')
        throw UsageError{"unknown option " + extra + Suggestion(extra, KnownNames(app))};
    // Name the option whose value came just before it: that is the usual cause.
    const auto at = std::find(arguments.begin(), arguments.end(), extra);
    if (at != arguments.end() && at - arguments.begin() >= 2) {
        const std::string& option = *(at - 2);
        if (option.size() > 1 && option[0] == '-' && option.find('=') == std::string::npos) {
            const bool repeatable =
                std::find(std::begin(kRepeatable), std::end(kRepeatable), option) != std::end(kRepeatable);
            throw UsageError{"unexpected argument " + Quote(extra) + " after " + option + " " +
                             Quote(*(at - 1)) + ": every option takes exactly one value" +
                             (repeatable ? "; give " + option + " again for another value" : std::string())};
        }
    }
    throw UsageError{"unexpected argument " + Quote(extra) + Suggestion(extra, KnownNames(app))};
}

// A value option given twice is a mistake unless the option collects values.
void RejectRepeats(const CLI::App& app) {
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_expected_min() == 0 || option->count() < 2)
            continue;
        const std::string name = option->get_name();
        if (std::find(std::begin(kRepeatable), std::end(kRepeatable), name) != std::end(kRepeatable))
            continue;
        const CLI::results_t& values = option->results();
        throw UsageError{name + " given twice (" + Quote(values[0]) + " and " + Quote(values[1]) +
                         "): it takes one value; give it once"};
    }
}

CLI::Option* AddValue(CLI::App& app, const std::string& names, std::string& value, const std::string& type,
                      const std::string& help) {
    return app.add_option(names, value, help)
        ->type_name(type)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
}

CLI::Option* AddRepeatable(CLI::App& app, const std::string& name, std::vector<std::string>& values,
                           const std::string& type, const std::string& help) {
    return app.add_option(name, values, help)
        ->type_name(type)
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
}

void AddSourceOptions(CLI::App& command, Options& options) {
    AddValue(command, "--connect", options.connect, "SOURCE", "ODBC data source name or connection string");
    AddValue(command, "--snapshot", options.snapshotFile, "FILE",
             "snapshot file to read instead of a live source; - reads standard input");
    AddValue(command, "--user", options.user, "NAME", "user name (password from UDMLGEN_PASSWORD)");
    AddValue(command, "-o,--output", options.outputFile, "FILE",
             "write there instead of standard output; replaced only when the run succeeds");
    command.allow_extras();
    // The include and exclude selection of catalogs, schemas and tables, so that generation and
    // capture honour it alike.
    AddSelectionOptions(command, options.selection);
    AddValue(command, "--timeout", options.timeoutText, "SECONDS",
             "seconds the server may take to log in or to answer one query, 1 to 86400 (default: no limit)");
}

void AddLoggingOptions(CLI::App& command, bool& quiet, bool& verbose) {
    command.add_flag("-q,--quiet", quiet, "print only errors on standard error");
    command.add_flag("-v,--verbose", verbose, "print each phase with its time, and the driver and DBMS");
}

// CLI11 reads "--flag=no" as the flag turned off; a flag here is on when given, so a value is a
// mistake to point out rather than a setting.
void RejectFlagValues(const CLI::App& app, const std::vector<std::string>& arguments) {
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& argument = arguments[i];
        const size_t equals = argument.find('=');
        const std::string name = argument.substr(0, equals);
        if (name.size() < 2 || name[0] != '-')
            continue;
        const CLI::Option* option = app.get_option_no_throw(name);
        if (option == nullptr)
            continue;
        if (option->get_expected_min() > 0) {
            i += equals == std::string::npos ? 1 : 0; // its value, whatever it looks like
        } else if (equals != std::string::npos) {
            throw UsageError{name + " " + Quote(argument.substr(equals + 1)) +
                             ": a flag takes no value; give " + name + " alone"};
        }
    }
}

void CheckLeftovers(const CLI::App& command, const std::vector<std::string>& arguments) {
    RejectFlagValues(command, arguments);
    const std::vector<std::string> extras = command.remaining();
    if (!extras.empty())
        RejectExtra(command, arguments, extras.front());
    RejectRepeats(command);
}

void CheckSource(const Options& options) {
    for (const std::string& file : options.existingFiles)
        if (file.empty())
            throw UsageError{"--existing '': give the name of a UDML file"};
    if (options.connect.empty() == options.snapshotFile.empty()) {
        throw UsageError{options.connect.empty()
                             ? "no source given: give --connect SOURCE or --snapshot FILE"
                             : "two sources given (--connect and --snapshot): give exactly one"};
    }
}

void CheckDatabase(Options& options, bool databaseGiven) {
    if (databaseGiven) {
        if (options.database.empty())
            throw UsageError{"--database '': the repository database needs a name, the first part of every "
                             "qualified name"};
        return;
    }
    options.database = DefaultDatabase(options.connect, options.snapshotFile);
    if (options.database.empty())
        throw UsageError{(options.snapshotFile.empty()
                              ? "--connect " + Quote(options.connect) + " names no DSN= or DATABASE="
                              : "--snapshot " + Quote(options.snapshotFile) + " has no file name") +
                         " to name the repository database after: give --database NAME"};
}

// What went wrong in words of our own; CLI11's texts name its internals.
std::string ExplainParseError(const CLI::App& app, const std::vector<std::string>& arguments,
                              const CLI::ParseError& error) {
    auto lookup = [&](const std::string& name) -> const CLI::Option* {
        for (const CLI::App* command :
             std::initializer_list<const CLI::App*>{&app, app.get_subcommand_ptr("snapshot").get()})
            if (const CLI::Option* option = command->get_option_no_throw(name))
                return option;
        return nullptr;
    };
    for (const std::string& argument : arguments) {
        const size_t equals = argument.find('=');
        if (argument.compare(0, 2, "--") != 0 || equals == std::string::npos)
            continue;
        const CLI::Option* option = lookup(argument.substr(0, equals));
        if (option != nullptr && option->get_expected_min() == 0)
            throw UsageError{argument.substr(0, equals) + " " + Quote(argument.substr(equals + 1)) +
                             ": a flag takes no value; give " + argument.substr(0, equals) + " alone"};
    }
    if (!arguments.empty()) {
        const CLI::Option* last = lookup(arguments.back());
        if (last != nullptr && last->get_expected_min() > 0)
            throw UsageError{arguments.back() + " needs a value: " + last->get_description()};
    }
    // Validators are ours (the selection patterns): their text is already in our own words.
    if (dynamic_cast<const CLI::ValidationError*>(&error) != nullptr)
        return error.what();
    return "cannot read the command line (" + error.get_name() + "); see udmlgen --help";
}

// A request that needs a name and has none would describe an object named "".
void CheckRequestNames(const Options& options, const std::string& request) {
    auto require = [&](const std::string& value, const char* option) {
        if (value.empty())
            throw UsageError{"--request " + request + " needs " + option + " NAME"};
    };
    switch (options.requestType) {
    case kTIDAColumn:
        require(options.table, "--table");
        require(options.column, "--column");
        break;
    case kTIDATable:
    case kTIDATableKey:
    case kTIDAForeignKey:
        require(options.table, "--table");
        break;
    default:
        break;
    }
}

} // namespace

int ParseGenerateMask(const std::string& list) {
    int mask = 0;
    size_t start = 0;
    while (start <= list.size()) {
        size_t comma = list.find(',', start);
        if (comma == std::string::npos)
            comma = list.size();
        const std::string item = Trim(list.substr(start, comma - start));
        start = comma + 1;
        if (item.empty())
            continue;
        const auto kind = kStatementKinds.find(item);
        if (kind == kStatementKinds.end())
            throw UsageError{"--generate " + Quote(list) + ": " + Quote(item) +
                             " is not a statement kind; give a comma list of catalog, schema, table, column, "
                             "foreign-key, table-key"};
        mask |= kind->second;
    }
    return mask;
}

uint8_t ParseTableTypes(const std::string& text) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hex ? text.substr(2) : text;
    if (!AllOf(digits, hex ? "0123456789abcdefABCDEF" : "0123456789"))
        throw UsageError{"--table-types " + Quote(text) +
                         ": not a number; give decimal digits or 0x and hexadecimal digits, 0 to 255"};
    const std::optional<long> value = DigitsValue(digits, hex ? 16 : 10, 255);
    if (!value)
        throw UsageError{"--table-types " + Quote(text) + ": out of range; give 0 to 255"};
    return static_cast<uint8_t>(*value);
}

unsigned ParseTimeout(const std::string& text) {
    if (!AllOf(text, "0123456789"))
        throw UsageError{"--timeout " + Quote(text) + ": not a number; give whole seconds, 1 to 86400"};
    const std::optional<long> value = DigitsValue(text, 10, 86400);
    if (!value || *value == 0)
        throw UsageError{"--timeout " + Quote(text) + ": out of range; give 1 to 86400 seconds"};
    return static_cast<unsigned>(*value);
}

int ParseDepth(const std::string& text) {
    const bool negative = !text.empty() && text[0] == '-';
    const std::string digits = negative ? text.substr(1) : text;
    if (!AllOf(digits, "0123456789"))
        throw UsageError{"--depth " + Quote(text) +
                         ": not a number; give decimal digits, or -1 for no limit (see --help)"};
    const std::optional<long> value = DigitsValue(digits, 10, 1000000000L);
    if (!value || (negative && *value > 1))
        throw UsageError{"--depth " + Quote(text) +
                         ": out of range; give -1 for no limit, or 0 to 1000000000"};
    return static_cast<int>(negative ? -*value : *value);
}

std::string DefaultDatabase(const std::string& connect, const std::string& snapshotFile) {
    if (!snapshotFile.empty())
        return snapshotFile == "-" ? "" : std::filesystem::path(snapshotFile).stem().string();
    if (connect.find('=') == std::string::npos)
        return connect;
    // Attributes as the driver manager reads them: KEY=VALUE pairs separated by ";", keys
    // ignoring case and blanks around them, a value in braces running to its closing brace
    // ("}}" is one brace in it), and the first of a repeated key counting.
    std::map<std::string, std::string> attributes;
    size_t at = 0;
    while (at < connect.size()) {
        const size_t equals = connect.find('=', at);
        if (equals == std::string::npos)
            break;
        const std::string key = Lower(Trim(connect.substr(at, equals - at)));
        std::string value;
        size_t next = equals + 1;
        if (next < connect.size() && connect[next] == '{') {
            for (++next; next < connect.size(); ++next) {
                if (connect[next] == '}') {
                    if (next + 1 < connect.size() && connect[next + 1] == '}') {
                        value += '}';
                        ++next;
                        continue;
                    }
                    ++next;
                    break;
                }
                value += connect[next];
            }
            next = connect.find(';', next);
        } else {
            next = connect.find(';', next);
            value =
                connect.substr(equals + 1, next == std::string::npos ? std::string::npos : next - equals - 1);
        }
        attributes.emplace(key, value);
        if (next == std::string::npos)
            break;
        at = next + 1;
    }
    for (const char* key : {"dsn", "database"}) {
        const auto found = attributes.find(key);
        if (found != attributes.end() && !found->second.empty())
            return found->second;
    }
    return "";
}

std::optional<Options> ParseOptions(int argc, char** argv) {
    Options options;
    CLI::App app{kDescription, "udmlgen"};
    app.footer(kHelpFooter);
    app.require_subcommand(0, 1);
    app.set_version_flag("--version", std::string("udmlgen ") + UDML_VERSION);
    AddSourceOptions(app, options);

    std::string request = "database";
    std::string depth, generate, tableTypes;
    std::vector<std::string> joinWithinModule;
    bool quiet = false, verbose = false;
    AddValue(app, "--database", options.database, "NAME",
             "repository database: the first part of every name (default: the snapshot file's name, the "
             "DSN, or the connection string's DSN= or DATABASE=)");
    AddValue(app, "--request", request, "KIND",
             "database, catalog, schema, table, column, table-key or foreign-key")
        ->capture_default_str();
    AddValue(app, "--catalog", options.catalog, "NAME", "catalog of the request");
    AddValue(app, "--schema", options.schema, "NAME", "schema of the request");
    AddValue(app, "--table", options.table, "NAME", "table of the request");
    AddValue(app, "--table-uri", options.tableUri, "URI", "URI written for the table of a table request");
    AddValue(app, "--column", options.column, "NAME", "column of a column request");
    AddValue(app, "--foreign-key", options.foreignKey, "NAME",
             "name of the foreign keys of a foreign-key request");
    AddValue(app, "--base-table", options.baseTable, "NAME",
             "table whose metadata the requested table stands for");
    AddValue(app, "--depth", depth, "N", "depth limit, -1 (default) for none; see the levels below");
    AddValue(app, "--generate", generate, "KINDS",
             "comma list of catalog, schema, table, column, foreign-key, table-key (default: all)");
    AddValue(app, "--table-types", tableTypes, "N", "table-type bits, 0 to 255 (default 1); see below");
    app.add_flag("--numeric-as-double", options.numericAsDouble, "type exact numerics as DOUBLE");
    AddRepeatable(app, "--existing", options.existingFiles, "FILE",
                  "UDML already in the repository (repeatable)");
    AddRepeatable(app, "--join-within-module", joinWithinModule, "MODULE=VIEWS",
                  "MODULE=VIEW;VIEW...: restrict those view objects to joins within MODULE (repeatable)");
    app.add_flag("--view-links", options.viewLinks,
                 "write the joins of the source's view links after the request");
    app.add_flag("--allow-missing", options.allowMissing,
                 "send the request even when the source holds no object of the names given");
    app.add_flag("--only-new", options.onlyNew,
                 "write only what the --existing files do not hold: new tables whole, new columns, keys "
                 "and foreign keys of tables they hold");
    std::string format;
    AddValue(app, "--format", format, "FORMAT", "udmlgen diff: the report as text (default) or json");
    AddLoggingOptions(app, quiet, verbose);

    CLI::App* snapshot = app.add_subcommand("snapshot", "capture a live source as a snapshot file");
    AddSourceOptions(*snapshot, options);
    AddLoggingOptions(*snapshot, quiet, verbose);
    CLI::App* sources = app.add_subcommand("sources", "list the ODBC data sources and drivers installed");
    sources->allow_extras();

    std::vector<std::string> arguments = SplitEmptyValues(argc, argv);
    // "diff" takes every option of a generation, so it is a word in front of them rather than a
    // subcommand with options of its own.
    const bool diff = !arguments.empty() && arguments.front() == "diff";
    if (diff)
        arguments.erase(arguments.begin());
    try {
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
        app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        std::cout << app.help();
        return std::nullopt;
    } catch (const CLI::CallForAllHelp&) {
        std::cout << app.help("", CLI::AppFormatMode::All);
        return std::nullopt;
    } catch (const CLI::CallForVersion&) {
        std::cout << "udmlgen " << UDML_VERSION << "\n";
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        throw UsageError{ExplainParseError(app, arguments, error)};
    }

    CheckLeftovers(app, arguments);
    CheckLeftovers(*snapshot, arguments);
    CheckLeftovers(*sources, arguments);
    if ((app.count("--output") != 0 || snapshot->count("--output") != 0) && options.outputFile.empty())
        throw UsageError{"-o '': give a file name, or - for standard output"};
    if (quiet && verbose)
        throw UsageError{"-q and -v given together: choose one"};
    if (app.count("--timeout") != 0 || snapshot->count("--timeout") != 0)
        options.timeoutSeconds = ParseTimeout(options.timeoutText);
    options.verbosity = quiet ? Verbosity::Quiet : verbose ? Verbosity::Verbose : Verbosity::Normal;
    if (sources->parsed()) {
        options.command = Options::Command::ListSources;
        return options;
    }
    if (snapshot->parsed()) {
        options.command = Options::Command::Snapshot;
        CheckSource(options);
        return options;
    }
    CheckSource(options);
    CheckDatabase(options, app.count("--database") != 0);
    if (diff) {
        options.command = Options::Command::Diff;
        if (options.onlyNew)
            throw UsageError{"--only-new with diff: diff writes a report, not UDML; leave one of them out"};
        if (options.viewLinks)
            throw UsageError{"--view-links with diff: diff compares the request's objects, not joins"};
    }
    if (app.count("--format")) {
        if (!diff)
            throw UsageError{"--format " + Quote(format) + ": only udmlgen diff writes a report"};
        if (format != "text" && format != "json")
            throw UsageError{"--format " + Quote(format) + ": give text or json"};
        options.jsonReport = format == "json";
    }

    const auto type = kRequestTypes.find(request);
    if (type == kRequestTypes.end())
        throw UsageError{"--request " + Quote(request) +
                         ": not a request kind; give database, catalog, schema, table, column, table-key or "
                         "foreign-key"};
    options.requestType = type->second;
    if (app.count("--depth"))
        options.depth = ParseDepth(depth);
    if (app.count("--generate"))
        options.generateMask = ParseGenerateMask(generate);
    if (app.count("--table-types"))
        options.tableTypes = ParseTableTypes(tableTypes);
    for (const std::string& restriction : joinWithinModule) {
        const size_t equals = restriction.find('=');
        if (equals == std::string::npos || equals == 0)
            throw UsageError{"--join-within-module " + Quote(restriction) +
                             ": give MODULE=VIEW;VIEW... with a module name before the ="};
        options.joinWithinModule.emplace_back(restriction.substr(0, equals), restriction.substr(equals + 1));
    }
    if (!options.allowMissing)
        CheckRequestNames(options, request);
    return options;
}

} // namespace udmlgen
