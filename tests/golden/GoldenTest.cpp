// Whole-source golden texts: each cases/<name>.json snapshot, run through udmlgen with the
// options in cases/<name>.args (where @CASES@ stands for the cases folder), must give cases/<name>.expected
// byte for byte. UDML_UPDATE_GOLDEN=1 rewrites the expected texts from the current output.
#include "support/RunCommand.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <fstream>

namespace {

const std::string kCases = std::string(UDML_SOURCE_DIR) + "/tests/golden/cases/";

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

std::string Trimmed(std::string text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    return text;
}

class GoldenText : public ::testing::TestWithParam<std::string> {};

TEST_P(GoldenText, MatchesExpectedOutput) {
    const std::string base = kCases + GetParam();
    std::string args;
    try {
        args = Trimmed(ReadWholeFile(base + ".args"));
        // Files beside the case are named @CASES@/name in the options.
        for (size_t at = args.find("@CASES@"); at != std::string::npos; at = args.find("@CASES@"))
            args.replace(at, 7, kCases.substr(0, kCases.size() - 1));
    } catch (const std::runtime_error&) {
    }
    const CommandResult run =
        RunCommand(UdmlgenPath() + " --snapshot " + ShellQuote(base + ".json") + " " + args);
    ASSERT_EQ(0, run.exitStatus) << run.standardError;
    if (std::getenv("UDML_UPDATE_GOLDEN")) {
        std::ofstream(base + ".expected", std::ios::binary) << run.standardOutput;
        GTEST_SKIP() << "rewrote " << base << ".expected";
    }
    const std::string expected = ReadWholeFile(base + ".expected");
    EXPECT_TRUE(expected == run.standardOutput) << DiffTexts(expected, run.standardOutput);
}

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(GoldenText);
std::string CaseTestName(const ::testing::TestParamInfo<std::string>& caseInfo) {
    std::string name = caseInfo.param;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Cases, GoldenText, ::testing::ValuesIn(CaseNames()), CaseTestName);

} // namespace
