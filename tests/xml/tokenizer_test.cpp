// The pull tokenizer and its value accessors, over text in memory and over real files
// on the sandbox's tmpfs.
#include "xml/tokenizer.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/record_text.h"
#include "support/sandbox.h"

namespace {

std::string input;
std::size_t input_pos;

int string_getchar() { return input_pos < input.size() ? static_cast<unsigned char>(input[input_pos++]) : 0; }

void start(std::string text)
{
    input = std::move(text);
    input_pos = 0;
    xt_initialize(string_getchar);
}

// One token as the tables below spell it: "<a" and "</a" for tags, "@name=value",
// "t:" text, "w:" whitespace, "s:" section text, the section marks (entity{ and }entity
// around an entity declaration), END and ERROR.
std::string spell(int kind)
{
    static const char* const marks[] = {"ERROR", "END", "<", "</", "@", "t:", "w:", "s:", "<!--", "-->",
                                        "<![CDATA[", "]]>", "<?", "?>", "entity{", "}entity"};
    if (kind < XT_ERROR || kind > XT_ENTITY_DECL_END) return "?" + std::to_string(kind);
    std::string mark = marks[kind + 1];
    if (kind == XT_START_TAG || kind == XT_END_TAG) return mark + xt_get_tag_name();
    if (kind == XT_ATTRIBUTE) return mark + xt_get_attr_name() + "=" + xt_get_value();
    return kind >= XT_TEXT && kind <= XT_SECTION_TEXT ? mark + xt_get_value() : mark;
}

// Every token up to and including the first end of input or error.
std::vector<std::string> tokens(std::string text)
{
    start(std::move(text));
    std::vector<std::string> out;
    for (int kind = XT_START_TAG; kind != XT_END && kind != XT_ERROR && out.size() < 100;)
        out.push_back(spell(kind = xt_get_token()));
    return out;
}

struct Case {
    std::string doc;
    std::vector<std::string> want;
};

TEST(Tokenizer, TokensOfDocuments)
{
    const std::string n200(200, 'n'), n127(127, 'n'), t3000(3000, 't'), t1023(1023, 't');
    const std::string e40(40, 'e'), c1500(1500, 'c'), c1021(1021, 'c');
    const Case cases[] = {
        {"<a/>", {"<a", "</a", "END"}},
        {"<a></a>", {"<a", "</a", "END"}},
        {"<a x=1 y='2' z>t</a >", {"<a", "@x=1", "@y=2", "@z=", "t:t", "</a", "END"}},
        // Quotes hold the other quote, ">" and "<"; blanks around "=" are allowed; an
        // unquoted value ends at a blank or ">".
        {"<a q = \"it's <b>\" r='say \"hi\"'>", {"<a", "@q=it's <b>", "@r=say \"hi\"", "END"}},
        {"<a v=1/2 w>", {"<a", "@v=1/2", "@w=", "END"}},
        // Text comes as alternating runs of non-whitespace and whitespace.
        {"<a>a b\t\r\n\fc</a>", {"<a", "t:a", "w: ", "t:b", "w:\t\r\n\f", "t:c", "</a", "END"}},
        // The five entities are resolved; an unknown name stays as written, and one
        // without its ";" gets one added, the character that ended it left in place.
        {"x&amp;y", {"t:x", "t:&y", "END"}},
        {"&lt;b&gt;&apos;&quot;", {"t:<b", "t:>", "t:'", "t:\"", "END"}},
        {"&foo; &bar baz&Qux<", {"t:&foo;", "w: ", "t:&bar;", "w: ", "t:baz", "t:&Qux;", "ERROR"}},
        // No numeric references, and a lone "&" is plain text.
        {"&#60;", {"t:&#60;", "END"}},
        {"a & b", {"t:a", "w: ", "t:&", "w: ", "t:b", "END"}},
        // An entity name holds 31 characters; the rest is ordinary text.
        {"&" + e40 + ";", {"t:&" + e40.substr(0, 31) + ";" + e40.substr(31) + ";", "END"}},
        // The same in quoted attribute values; an unquoted one is taken as it stands.
        {"<a v=\"1&lt;2&x y\" w=a&amp;b>", {"<a", "@v=1<2&x; y", "@w=a&amp;b", "END"}},
        // Names keep 127 characters and values 1,023, cut silently.
        {"<" + n200 + " " + n200 + "=v></" + n200 + ">", {"<" + n127, "@" + n127 + "=v", "</" + n127, "END"}},
        {"<a v='" + t3000 + "'>" + t3000, {"<a", "@v=" + t1023, "t:" + t1023, "END"}},
        // Sections.
        {"<!---->", {"<!--", "s:", "-->", "END"}},
        {"<!-- a -- b ->--><x/>", {"<!--", "s: a -- b ->", "-->", "<x", "</x", "END"}},
        {"<![CDATA[<a>]]]>", {"<![CDATA[", "s:<a>]", "]]>", "END"}},
        {"<?xml version=\"1.0\"?>", {"<?", "s:xml version=\"1.0\"", "?>", "END"}},
        {"<!-- open", {"<!--", "END"}},
        // Section text comes in chunks of 1,023, and a closer is looked for only within
        // the current chunk: one split across two chunks is not recognised.
        {"<!--" + c1500 + "-->", {"<!--", "s:" + c1500.substr(0, 1023), "s:" + c1500.substr(1023), "-->", "END"}},
        {"<!--" + c1021 + "-->after-->", {"<!--", "s:" + c1021 + "--", "s:>after", "-->", "END"}},
        {"<![CDATA[" + c1021 + "]]>x]]>", {"<![CDATA[", "s:" + c1021 + "]]", "s:>x", "]]>", "END"}},
        // Syntax errors, and the end of the input where a tag may or may not end.
        {"</a", {"ERROR"}},
        {"</a b>", {"ERROR"}},
        {"<", {"ERROR"}},
        {"<a/x>", {"<a", "ERROR"}},
        {"<a x=\"1", {"<a", "ERROR"}},
        {"<a x=1", {"<a", "ERROR"}},
        {"<a b<c>", {"<a", "ERROR"}},
        {"<a xy", {"<a", "END"}},
        {"", {"END"}},
        // A NUL byte ends the document.
        {std::string("<a>b\0c</a>", 10), {"<a", "t:b", "END"}},
    };
    for (const Case& c : cases) EXPECT_EQ(tokens(c.doc), c.want) << c.doc.substr(0, 60);
}

// `<!ENTITY` is recognised only when the byte after the seven letters in the name
// buffer is zero: never if an earlier, longer name left a letter there (xt_initialize
// keeps the buffer), until a name of seven is read out with xt_get_tag_name.
TEST(Tokenizer, EntityDeclarationDependsOnTheNameBuffer)
{
    EXPECT_EQ(tokens("<abcdefghij>"), (std::vector<std::string>{"<abcdefghij", "END"}));
    EXPECT_EQ(tokens("<!ENTITY e \"a>b\">"),
              (std::vector<std::string>{"<!ENTITY", "@e=", "@\"a=", "t:b\">", "END"}));
    EXPECT_EQ(tokens("<!ENTITY e \"a>b\">x"),
              (std::vector<std::string>{"entity{", "s: e \"a>b\"", "}entity", "t:x", "END"}));
}

// A document that stopped early leaves a pushed-back character or a pending section
// end; the next one begins with neither, and its offset counts from 0 again.
TEST(Tokenizer, InitialiseStartsANewDocumentClean)
{
    start("<a>");
    ASSERT_EQ(xt_get_token(), XT_START_TAG);  // ">" is pushed back
    EXPECT_EQ(xt_input_offset(), 2);
    EXPECT_EQ(tokens("b"), (std::vector<std::string>{"t:b", "END"}));
    EXPECT_EQ(xt_input_offset(), 1);

    start("<!--x-->");
    ASSERT_EQ(xt_get_token(), XT_COMMENT_START);
    ASSERT_EQ(xt_get_token(), XT_SECTION_TEXT);  // the comment's end is pending
    EXPECT_EQ(tokens("<!--y-->"), (std::vector<std::string>{"<!--", "s:y", "-->", "END"}));
}

TEST(Accessors, StringValues)
{
    char buf[16];
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

    start("<a s='hello world'>");
    xt_get_token();
    xt_get_token();
    EXPECT_EQ(getAttributeStringVal(buf, 6), 0);
    EXPECT_STREQ(buf, "hello");
}

// A value read as element content by getIntVal, getLongVal and getBoolVal, then as an
// attribute by their getAttribute... twins: "sum of the three results,int,long,bool
// attribute int,long,bool".
std::string typed(const std::string& text)
{
    int i = 99, b = 99, ai = 99, ab = 99;
    long l = 99, al = 99;
    auto content = [&text](auto get, auto* out) {
        start("<v>" + text + "</v>");
        xt_get_token();
        return get(out);
    };
    int r = content(getIntVal, &i) + content(getLongVal, &l) + content(getBoolVal, &b);
    start("<v a='" + text + "'>");
    xt_get_token();
    xt_get_token();
    r += getAttributeIntegerVal(&ai) + getAttributeLongVal(&al) + getAttributeBoolVal(&ab);
    return fields(r, i, l, b) + " " + fields(ai, al, ab);
}

// Numbers as atoi/atol read them, held at the 32-bit limits (a long is as wide as on
// the device, whatever the target), from the first 31 characters; a boolean is true
// only for a "True", "true" or "TRUE" prefix.
TEST(Accessors, NumbersAndBooleans)
{
    const std::pair<std::string, const char*> cases[] = {
        {"42", "0,42,42,0 42,42,0"},
        {" -7abc", "0,-7,-7,0 -7,-7,0"},
        {"abc", "0,0,0,0 0,0,0"},
        {"99999999999", "0,2147483647,2147483647,0 2147483647,2147483647,0"},
        {"-99999999999", "0,-2147483648,-2147483648,0 -2147483648,-2147483648,0"},
        {"1" + std::string(40, '0'), "0,2147483647,2147483647,0 2147483647,2147483647,0"},
        {"TRUE", "0,0,0,1 0,0,1"},
        {"True ", "0,0,0,1 0,0,1"},
        {"trueish", "0,0,0,1 0,0,1"},
        {"tRue", "0,0,0,0 0,0,0"},
        {"Yes", "0,0,0,0 0,0,0"},
        {"<w/>5", "-3,0,0,0 0,0,0"},  // content holding an element fails
    };
    for (const auto& [text, want] : cases) EXPECT_EQ(typed(text), want) << text;
}

// The file reader: text across its 1,024-byte blocks, a NUL byte that ends the file's
// document, the file closed afterwards, and a file that opens but cannot be read.
TEST(FileReader, ReadsFilesBlockByBlockAndStopsAtNul)
{
    const std::string text(2500, 'x');
    sandbox::write_file("/tmp/doc.xml", "<a>" + text + "</a><b>12" + std::string(1, '\0') + "</b>");
    {
        XmlDocument doc("/tmp/doc.xml");
        ASSERT_TRUE(doc.ok());
        std::vector<std::string> got;
        for (int kind = XT_START_TAG; kind != XT_END && kind != XT_ERROR;) got.push_back(spell(kind = xt_get_token()));
        EXPECT_EQ(got, (std::vector<std::string>{"<a", "t:" + text.substr(0, 1023), "</a", "<b", "t:12", "END"}));
        EXPECT_EQ(xt_input_offset(), static_cast<long>(("<a>" + text + "</a><b>12").size()));  // at the NUL
        EXPECT_FALSE(doc.read_error());
    }
    EXPECT_EQ(xml.file, nullptr);
    EXPECT_FALSE(XmlDocument("/tmp/missing.xml").ok());
    XmlDocument dir("/tmp");
    EXPECT_EQ(xt_get_token(), XT_END);
    EXPECT_TRUE(dir.read_error());
}

}  // namespace
