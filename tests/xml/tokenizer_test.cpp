// The pull tokenizer and its value accessors, over text in memory and over real files
// on the sandbox's tmpfs.
#include "xml/tokenizer.h"

#include <climits>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>
#include <vector>

#include "support/sandbox.h"

using ::testing::ElementsAre;
using ::testing::Pair;

namespace {

std::string input;
std::size_t input_pos;

int string_getchar()
{
    if (input_pos >= input.size()) return 0;
    return static_cast<unsigned char>(input[input_pos++]);
}

void start(std::string text)
{
    input = std::move(text);
    input_pos = 0;
    xt_initialize(string_getchar);
}

// The token's text as a test wants to see it: the name for tags, name=value for
// attributes, the value otherwise.
std::string text_of_token(int kind)
{
    switch (kind) {
    case XT_START_TAG:
    case XT_END_TAG: return xt_get_tag_name();
    case XT_ATTRIBUTE: return std::string(xt_get_attr_name()) + "=" + xt_get_value();
    case XT_TEXT:
    case XT_WHITESPACE:
    case XT_SECTION_TEXT: return xt_get_value();
    default: return "";
    }
}

// Every token up to and including the first end of input or error.
std::vector<std::pair<int, std::string>> tokens(std::string text)
{
    start(std::move(text));
    std::vector<std::pair<int, std::string>> out;
    for (int guard = 0; guard < 10000; ++guard) {
        int kind = xt_get_token();
        out.emplace_back(kind, text_of_token(kind));
        if (kind == XT_END || kind == XT_ERROR) break;
    }
    return out;
}

TEST(Tokenizer, TagsAttributesAndTextRuns)
{
    EXPECT_THAT(tokens("<a/>"), ElementsAre(Pair(1, "a"), Pair(2, "a"), Pair(0, "")));
    EXPECT_THAT(tokens("<a></a>"), ElementsAre(Pair(1, "a"), Pair(2, "a"), Pair(0, "")));
    EXPECT_THAT(tokens("<a x=1 y='2' z>t</a >"),
                ElementsAre(Pair(1, "a"), Pair(3, "x=1"), Pair(3, "y=2"), Pair(3, "z="),
                            Pair(4, "t"), Pair(2, "a"), Pair(0, "")));
    // Quotes hold the other quote, ">" and "<"; blanks around "=" are allowed.
    EXPECT_THAT(tokens("<a q = \"it's <b>\" r='say \"hi\"'>"),
                ElementsAre(Pair(1, "a"), Pair(3, "q=it's <b>"), Pair(3, "r=say \"hi\""),
                            Pair(0, "")));
    // An unquoted value ends at a blank or at ">"; a bare name right before ">" too.
    EXPECT_THAT(tokens("<a v=1/2 w>"),
                ElementsAre(Pair(1, "a"), Pair(3, "v=1/2"), Pair(3, "w="), Pair(0, "")));
    // Text comes as alternating runs of non-whitespace and whitespace.
    EXPECT_THAT(tokens("<a>a b\t\r\n\fc</a>"),
                ElementsAre(Pair(1, "a"), Pair(4, "a"), Pair(5, " "), Pair(4, "b"),
                            Pair(5, "\t\r\n\f"), Pair(4, "c"), Pair(2, "a"), Pair(0, "")));
}

TEST(Tokenizer, EntitiesAreResolvedOrKeptLiterallyWithASemicolon)
{
    EXPECT_THAT(tokens("x&amp;y"), ElementsAre(Pair(4, "x"), Pair(4, "&y"), Pair(0, "")));
    EXPECT_THAT(tokens("&lt;b&gt;&apos;&quot;"),
                ElementsAre(Pair(4, "<b"), Pair(4, ">"), Pair(4, "'"), Pair(4, "\""), Pair(0, "")));
    // An unknown name stays as written, and one without its ";" gets one added; the
    // character that ended the name stays where it was.
    EXPECT_THAT(tokens("&foo; &bar baz&Qux<"),
                ElementsAre(Pair(4, "&foo;"), Pair(5, " "), Pair(4, "&bar;"), Pair(5, " "),
                            Pair(4, "baz"), Pair(4, "&Qux;"), Pair(-1, "")));
    // No numeric references: the "&" stays and "#60;" follows as text.
    EXPECT_THAT(tokens("&#60;"), ElementsAre(Pair(4, "&#60;"), Pair(0, "")));
    EXPECT_THAT(tokens("a & b"),
                ElementsAre(Pair(4, "a"), Pair(5, " "), Pair(4, "&"), Pair(5, " "), Pair(4, "b"),
                            Pair(0, "")));
    // Names are at most 31 characters; the rest is ordinary text.
    std::string long_name(40, 'e');
    EXPECT_THAT(tokens("&" + long_name + ";"),
                ElementsAre(Pair(4, "&" + long_name.substr(0, 31) + ";" + long_name.substr(31) + ";"),
                            Pair(0, "")));
    // The same in quoted attribute values; an unquoted one is taken as it stands.
    EXPECT_THAT(tokens("<a v=\"1&lt;2&x y\" w=a&amp;b>"),
                ElementsAre(Pair(1, "a"), Pair(3, "v=1<2&x; y"), Pair(3, "w=a&amp;b"), Pair(0, "")));
}

TEST(Tokenizer, NamesAndValuesAreCutSilently)
{
    std::string name(200, 'n');
    EXPECT_THAT(tokens("<" + name + " " + name + "=v></" + name + ">"),
                ElementsAre(Pair(1, name.substr(0, 127)), Pair(3, name.substr(0, 127) + "=v"),
                            Pair(2, name.substr(0, 127)), Pair(0, "")));
    std::string text(3000, 't');
    EXPECT_THAT(tokens("<a v='" + text + "'>" + text),
                ElementsAre(Pair(1, "a"), Pair(3, "v=" + text.substr(0, 1023)),
                            Pair(4, text.substr(0, 1023)), Pair(0, "")));
}

TEST(Tokenizer, MarkupSections)
{
    EXPECT_THAT(tokens("<!---->"), ElementsAre(Pair(7, ""), Pair(6, ""), Pair(8, ""), Pair(0, "")));
    EXPECT_THAT(tokens("<!-- a -- b ->--><x/>"),
                ElementsAre(Pair(7, ""), Pair(6, " a -- b ->"), Pair(8, ""), Pair(1, "x"),
                            Pair(2, "x"), Pair(0, "")));
    EXPECT_THAT(tokens("<![CDATA[<a>]]]>"),
                ElementsAre(Pair(9, ""), Pair(6, "<a>]"), Pair(10, ""), Pair(0, "")));
    EXPECT_THAT(tokens("<?xml version=\"1.0\"?>"),
                ElementsAre(Pair(11, ""), Pair(6, "xml version=\"1.0\""), Pair(12, ""), Pair(0, "")));
    // End of input inside a section.
    EXPECT_THAT(tokens("<!-- open"), ElementsAre(Pair(7, ""), Pair(0, "")));
}

// Chunks are 1,023 characters, and a closing sequence is looked for only within the
// current chunk: one split across two chunks is not recognised.
TEST(Tokenizer, SectionChunksAndSplitClosers)
{
    std::string body(1500, 'c');
    EXPECT_THAT(tokens("<!--" + body + "-->"),
                ElementsAre(Pair(7, ""), Pair(6, body.substr(0, 1023)), Pair(6, body.substr(1023)),
                            Pair(8, ""), Pair(0, "")));
    std::string split(1021, 'c');
    EXPECT_THAT(tokens("<!--" + split + "-->after-->"),
                ElementsAre(Pair(7, ""), Pair(6, split + "--"), Pair(6, ">after"), Pair(8, ""),
                            Pair(0, "")));
    EXPECT_THAT(tokens("<![CDATA[" + split + "]]>x]]>"),
                ElementsAre(Pair(9, ""), Pair(6, split + "]]"), Pair(6, ">x"), Pair(10, ""),
                            Pair(0, "")));
}

// `<!ENTITY` is recognised only when the byte after the seven letters in the name
// buffer is zero: never if an earlier, longer name left a letter there, until a name
// of seven is read out with xt_get_tag_name.
TEST(Tokenizer, EntityDeclarationDependsOnTheNameBuffer)
{
    start("<abcdefghij>");
    ASSERT_EQ(xt_get_token(), XT_START_TAG);
    ASSERT_STREQ(xt_get_tag_name(), "abcdefghij");

    start("<!ENTITY e \"a>b\">");
    EXPECT_EQ(xt_get_token(), XT_START_TAG);
    EXPECT_STREQ(xt_get_tag_name(), "!ENTITY");  // terminates the buffer at seven

    EXPECT_THAT(tokens("<!ENTITY e \"a>b\">x"),
                ElementsAre(Pair(13, ""), Pair(6, " e \"a>b\""), Pair(14, ""), Pair(4, "x"),
                            Pair(0, "")));
}

TEST(Tokenizer, SyntaxErrorsAndTheEndOfInput)
{
    EXPECT_THAT(tokens("</a"), ElementsAre(Pair(-1, "")));
    EXPECT_THAT(tokens("</a b>"), ElementsAre(Pair(-1, "")));
    EXPECT_THAT(tokens("<"), ElementsAre(Pair(-1, "")));
    EXPECT_THAT(tokens("<a/x>"), ElementsAre(Pair(1, "a"), Pair(-1, "")));
    EXPECT_THAT(tokens("<a x=\"1"), ElementsAre(Pair(1, "a"), Pair(-1, "")));
    EXPECT_THAT(tokens("<a x=1"), ElementsAre(Pair(1, "a"), Pair(-1, "")));
    EXPECT_THAT(tokens("<a b<c>"), ElementsAre(Pair(1, "a"), Pair(-1, "")));
    EXPECT_THAT(tokens("<a xy"), ElementsAre(Pair(1, "a"), Pair(0, "")));
    // A NUL byte ends the document.
    EXPECT_THAT(tokens(std::string("<a>b\0c</a>", 10)), ElementsAre(Pair(1, "a"), Pair(4, "b"), Pair(0, "")));
    EXPECT_THAT(tokens(""), ElementsAre(Pair(0, "")));
}

// A document that stopped early leaves a pushed-back character; the next one does not
// begin with it.
TEST(Tokenizer, InitialiseStartsANewDocumentClean)
{
    start("<a>");
    ASSERT_EQ(xt_get_token(), XT_START_TAG);  // ">" is pushed back
    EXPECT_THAT(tokens("b"), ElementsAre(Pair(4, "b"), Pair(0, "")));

    start("<!--x-->");
    ASSERT_EQ(xt_get_token(), XT_COMMENT_START);
    ASSERT_EQ(xt_get_token(), XT_SECTION_TEXT);  // the comment's end is pending
    EXPECT_THAT(tokens("<!--y-->"), ElementsAre(Pair(7, ""), Pair(6, "y"), Pair(8, ""), Pair(0, "")));
}

TEST(Accessors, StringValueReadsTheElementContent)
{
    char buf[16];
    start("<a></a>");
    xt_get_token();
    EXPECT_EQ(getStringVal(buf, sizeof buf), 0);
    EXPECT_STREQ(buf, "");

    start("<a> a &amp; b </a><b/>");
    xt_get_token();
    EXPECT_EQ(getStringVal(buf, sizeof buf), 0);
    EXPECT_STREQ(buf, " a & b ");  // surrounding blanks kept
    EXPECT_EQ(xt_get_token(), XT_START_TAG);

    // Full: returns at once and leaves the rest of the content unread.
    start("<a>ab cd</a>");
    xt_get_token();
    EXPECT_EQ(getStringVal(buf, 3), 0);
    EXPECT_STREQ(buf, "ab");
    EXPECT_EQ(xt_get_token(), XT_WHITESPACE);

    // A nested element, a comment or the end of input fail, keeping what was read.
    for (const char* doc : {"<a>x<b/></a>", "<a>x<!--c--></a>", "<a>x"}) {
        start(doc);
        xt_get_token();
        EXPECT_EQ(getStringVal(buf, sizeof buf), -1) << doc;
        EXPECT_STREQ(buf, "x") << doc;
    }
}

TEST(Accessors, NumbersAndBooleansFromContent)
{
    struct Case {
        const char* doc;
        int ret, i, b;
        long l;
    } cases[] = {
        {"<v>42</v>", 0, 42, 0, 42},
        {"<v> -7abc</v>", 0, -7, 0, -7},
        {"<v>abc</v>", 0, 0, 0, 0},
        {"<v></v>", 0, 0, 0, 0},
        {"<v>99999999999</v>", 0, INT_MAX, 0, 99999999999L},
        {"<v>-99999999999</v>", 0, INT_MIN, 0, -99999999999L},
        {"<v>TRUE</v>", 0, 0, 1, 0},
        {"<v>True </v>", 0, 0, 1, 0},
        {"<v>trueish</v>", 0, 0, 1, 0},
        {"<v>tRue</v>", 0, 0, 0, 0},
        {"<v>yes</v>", 0, 0, 0, 0},
        {"<v>1</v>", 0, 1, 0, 1},
        {"<v><w/>5</v>", -1, 0, 0, 0},
    };
    for (const auto& c : cases) {
        int i = 99, b = 99;
        long l = 99;
        start(c.doc);
        xt_get_token();
        EXPECT_EQ(getIntVal(&i), c.ret) << c.doc;
        EXPECT_EQ(i, c.i) << c.doc;
        start(c.doc);
        xt_get_token();
        EXPECT_EQ(getLongVal(&l), c.ret) << c.doc;
        EXPECT_EQ(l, c.l) << c.doc;
        start(c.doc);
        xt_get_token();
        EXPECT_EQ(getBoolVal(&b), c.ret) << c.doc;
        EXPECT_EQ(b, c.b) << c.doc;
    }
}

TEST(Accessors, AttributeValues)
{
    // 31 characters are looked at: "1" followed by 40 zeros is too big either way.
    start("<a s='hello world' n=' 12x' t=true f=Yes big='1" + std::string(40, '0') + "'>");
    xt_get_token();
    char s[6];
    int n = 99;
    long l = 99;
    ASSERT_EQ(xt_get_token(), XT_ATTRIBUTE);
    EXPECT_EQ(getAttributeStringVal(s, sizeof s), 0);
    EXPECT_STREQ(s, "hello");
    ASSERT_EQ(xt_get_token(), XT_ATTRIBUTE);
    EXPECT_EQ(getAttributeIntegerVal(&n), 0);
    EXPECT_EQ(n, 12);
    EXPECT_EQ(getAttributeLongVal(&l), 0);
    EXPECT_EQ(l, 12);
    ASSERT_EQ(xt_get_token(), XT_ATTRIBUTE);
    EXPECT_EQ(getAttributeBoolVal(&n), 0);
    EXPECT_EQ(n, 1);
    ASSERT_EQ(xt_get_token(), XT_ATTRIBUTE);
    EXPECT_EQ(getAttributeBoolVal(&n), 0);
    EXPECT_EQ(n, 0);
    ASSERT_EQ(xt_get_token(), XT_ATTRIBUTE);
    EXPECT_EQ(getAttributeIntegerVal(&n), 0);
    EXPECT_EQ(n, INT_MAX);
    EXPECT_EQ(getAttributeLongVal(&l), 0);
    EXPECT_EQ(l, LONG_MAX);
    EXPECT_EQ(UnknownAttributeWarning(xt_get_attr_name()), 0);
}

// The file reader across its 1,024-byte blocks, a NUL byte in a file, and a reader
// that starts over for every file.
TEST(FileReader, ReadsFilesBlockByBlockAndStopsAtNul)
{
    std::string text(2500, 'x');
    sandbox::write_file("/tmp/long.xml", "<a>" + text + "</a>");
    sandbox::write_file("/tmp/nul.xml", std::string("<b>12\0</b>", 10));
    {
        XmlDocument doc("/tmp/long.xml");
        ASSERT_TRUE(doc.ok());
        EXPECT_EQ(xt_get_token(), XT_START_TAG);
        EXPECT_EQ(xt_get_token(), XT_TEXT);
        EXPECT_EQ(xt_get_value(), text.substr(0, 1023));
        EXPECT_EQ(xt_get_token(), XT_END_TAG);
        EXPECT_EQ(xt_get_token(), XT_END);
        EXPECT_FALSE(doc.read_error());
    }
    EXPECT_EQ(xml.file, nullptr);
    {
        XmlDocument doc("/tmp/nul.xml");
        ASSERT_TRUE(doc.ok());
        EXPECT_EQ(xt_get_token(), XT_START_TAG);
        EXPECT_STREQ(xt_get_tag_name(), "b");  // nothing of the first file replayed
        int v = 0;
        EXPECT_EQ(getIntVal(&v), -1);  // the NUL ends the document inside the element
        EXPECT_EQ(v, 0);
    }
    EXPECT_FALSE(XmlDocument("/tmp/missing.xml").ok());
    XmlDocument dir("/tmp");
    EXPECT_EQ(xt_get_token(), XT_END);
    EXPECT_TRUE(dir.read_error());
}

}  // namespace
