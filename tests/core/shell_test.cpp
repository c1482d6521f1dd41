// The quoting helper against the real shell: whatever the string, the program receives
// it as one intact word and no other command runs.
#include "core/shell.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include "hostile/corpus.h"
#include "support/sandbox.h"

namespace {

// Runs `command` through the shell and returns what it printed.
std::string output_of(const std::string& command)
{
    std::string out;
    FILE* p = popen(command.c_str(), "r");
    if (p == nullptr) return "<popen failed>";
    char buf[256];
    for (std::size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    pclose(p);
    return out;
}

TEST(Shell, EveryStringReachesItsProgramAsOneWordAndRunsNothing)
{
    ASSERT_EQ(chdir("/tmp"), 0);  // where an injected command would leave its marker
    for (const char* s : kHostileCorpus) {
        char quoted[256], escaped[256];
        ASSERT_TRUE(shell_quoted(quoted, s));
        ASSERT_TRUE(shell_escaped(escaped, s));
        // printf prints each argument between brackets, so a split would show.
        EXPECT_EQ(output_of(std::string("printf '[%s]' '") + quoted + "'"), "[" + std::string(s) + "]")
            << s;
        EXPECT_EQ(output_of(std::string("printf '[%s]' ") + escaped), "[" + std::string(s) + "]") << s;
        EXPECT_FALSE(sandbox::exists("/tmp/pwned")) << s;
    }
}

TEST(Shell, OrdinaryTextIsUnchangedAndGlobsStayActiveOnlyWhenAsked)
{
    char out[64];
    ASSERT_TRUE(shell_escaped(out, "http://cms:8080/a-b_c.d/%20x+y,z@h=1"));
    EXPECT_STREQ(out, "http://cms:8080/a-b_c.d/%20x+y,z@h=1");
    ASSERT_TRUE(shell_escaped(out, "*.mpg", true));
    EXPECT_STREQ(out, "*.mpg");
    ASSERT_TRUE(shell_escaped(out, "*.mpg"));
    EXPECT_STREQ(out, "\\*.mpg");

    sandbox::write_file("/tmp/g1.mpg", "");
    sandbox::write_file("/tmp/g2.mpg", "");
    ASSERT_TRUE(shell_escaped(out, "g[12].mpg", true));
    EXPECT_EQ(output_of(std::string("cd /tmp && printf '[%s]' ") + out), "[g1.mpg][g2.mpg]");
    ASSERT_TRUE(shell_escaped(out, "g* x;.mpg", true));
    EXPECT_EQ(output_of(std::string("cd /tmp && printf '[%s]' ") + out), "[g* x;.mpg]");
}

TEST(Shell, AResultThatDoesNotFitIsRefusedAndEmpty)
{
    char small[6];
    EXPECT_TRUE(shell_quoted(small, "abcde"));
    EXPECT_FALSE(shell_quoted(small, "ab'c"));  // needs 7 characters
    EXPECT_STREQ(small, "");
    EXPECT_FALSE(shell_escaped(small, "a b c"));
    EXPECT_STREQ(small, "");
}

}  // namespace
