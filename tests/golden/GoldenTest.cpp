// Whole-output golden texts, the one place where long outputs are compared: each cases/<name>.json
// snapshot runs through udmlgen once per line of cases/<name>.args (@CASES@ stands for the cases
// folder) and must give cases/<name>.expected byte for byte. With one line the expected text is the
// output itself; with several, each run's output follows a line "== <args>". Whatever a run writes
// to standard error (quiet: errors only), and a non-zero exit status, follow a line
// "== stderr, exit N".
// UDML_UPDATE_GOLDEN=1 rewrites the expected texts from the current output.
#include "support/RunCommand.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <fstream>
#include <sstream>

namespace {

const std::string kCases = std::string(UDML_SOURCE_DIR) + "/tests/golden/cases";

std::vector<std::string> CaseNames() {
    std::vector<std::string> names;
    if (DIR* folder = opendir(kCases.c_str())) {
        while (dirent* entry = readdir(folder)) {
            const std::string name = entry->d_name;
            if (name.size() > 5 && name.compare(name.size() - 5, 5, ".json") == 0)
                names.push_back(name.substr(0, name.size() - 5));
        }
        closedir(folder);
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

class GoldenText : public ::testing::TestWithParam<std::string> {};

TEST_P(GoldenText, MatchesExpectedOutput) {
    const std::string base = kCases + "/" + GetParam();
    std::vector<std::string> runs;
    std::istringstream args(ReadWholeFile(base + ".args"));
    for (std::string line; std::getline(args, line);)
        if (line.find_first_not_of(' ') != std::string::npos)
            runs.push_back(line);
    std::string actual;
    for (const std::string& run : runs) {
        const CommandResult result =
            RunCommand(UdmlgenPath() + " -q --snapshot " + ShellQuote(base + ".json") + " " +
                       Replaced(run, "@CASES@", kCases));
        if (runs.size() > 1)
            actual += "== " + run + "\n";
        actual += result.standardOutput;
        if (result.exitStatus != 0 || !result.standardError.empty())
            actual += "\n== stderr, exit " + std::to_string(result.exitStatus) + "\n" +
                      Replaced(result.standardError, kCases, "@CASES@");
    }
    if (std::getenv("UDML_UPDATE_GOLDEN")) {
        std::ofstream(base + ".expected", std::ios::binary) << actual;
        GTEST_SKIP() << "rewrote " << base << ".expected";
    }
    const std::string expected = ReadWholeFile(base + ".expected");
    EXPECT_TRUE(expected == actual) << DiffTexts(expected, actual);
}

std::string CaseTestName(const ::testing::TestParamInfo<std::string>& caseInfo) {
    std::string name = caseInfo.param;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Cases, GoldenText, ::testing::ValuesIn(CaseNames()), CaseTestName);

} // namespace
