// The pull tokenizer and its value accessors, over text in memory and a real file on
// the sandbox's tmpfs.
#include "xml/tokenizer.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "support/record_text.h"
#include "support/sandbox.h"

namespace {

using Texts = std::vector<std::string>;

std::string input;
std::size_t input_pos;

int string_getchar() { return input_pos < input.size() ? static_cast<unsigned char>(input[input_pos++]) : 0; }

void start(std::string text)
{
    input = std::move(text);
    input_pos = 0;
    xt_initialize(string_getchar);
}

// One token as the tables spell it: "<a" and "</a" for tags, "@name=value", "t:" text,
// "w:" whitespace, "s:" section text, the section marks, END and ERROR.
std::string spell(int kind)
{
    static const char* const marks[] = {"ERROR", "END", "<", "</", "@", "t:", "w:", "s:", "<!--", "-->",
                                        "<![CDATA[", "]]>", "<?", "?>", "entity{", "}entity"};
    std::string mark = marks[kind + 1];
    if (kind == XT_START_TAG || kind == XT_END_TAG) return mark + xt_get_tag_name();
    if (kind == XT_ATTRIBUTE) return mark + xt_get_attr_name() + "=" + xt_get_value();
    return kind >= XT_TEXT && kind <= XT_SECTION_TEXT ? mark + xt_get_value() : mark;
}

// Every token up to and including the first end of input or error; `text` is null when
// the tokenizer already has its input.
Texts tokens(const std::string* text)
{
    if (text) start(*text);
    Texts out;
    for (int kind = XT_START_TAG; kind != XT_END && kind != XT_ERROR && out.size() < 100;)
        out.push_back(spell(kind = xt_get_token()));
    return out;
}

TEST(Tokenizer, TokensOfDocuments)
{
    const std::string n200(200, 'n'), n127(127, 'n'), t3000(3000, 't'), t1023(1023, 't'), e40(40, 'e');
    const std::string c1500(1500, 'c'), c1021(1021, 'c');
    const std::pair<std::string, Texts> cases[] = {
        {"<a></a><b/>", {"<a", "</a", "<b", "</b", "END"}},
        // Quotes hold the other quote, ">" and "<"; blanks around "="; an unquoted value
        // ends at a blank or ">"; a name alone has an empty value.
        {"<a q = \"it's <b>\" r='say \"hi\"' v=1/2 w>", {"<a", "@q=it's <b>", "@r=say \"hi\"", "@v=1/2", "@w=", "END"}},
        {"<a>a b\t\r\n\fc</a >", {"<a", "t:a", "w: ", "t:b", "w:\t\r\n\f", "t:c", "</a", "END"}},
        // The five entities are resolved; an unknown name stays as written, and one without
        // its ";" gets one added, the character that ended it left in place.
        {"&lt;b&gt;&apos;&quot;x&amp;y", {"t:<b", "t:>", "t:'", "t:\"x", "t:&y", "END"}},
        {"&foo; &bar baz&Qux<", {"t:&foo;", "w: ", "t:&bar;", "w: ", "t:baz", "t:&Qux;", "ERROR"}},
        // No numeric references; a lone "&" is text; an entity name holds 31 characters.
        {"&#60; & &" + e40 + ";", {"t:&#60;", "w: ", "t:&", "w: ", "t:&" + e40.substr(0, 31) + ";" + e40.substr(31) + ";", "END"}},
        // The same in quoted attribute values; an unquoted one is taken as it stands.
        {"<a v=\"1&lt;2&x y\" w=a&amp;b>", {"<a", "@v=1<2&x; y", "@w=a&amp;b", "END"}},
        // Names keep 127 characters and values 1,023, cut silently.
        {"<" + n200 + " " + n200 + "=v></" + n200 + ">", {"<" + n127, "@" + n127 + "=v", "</" + n127, "END"}},
        {"<a v='" + t3000 + "'>" + t3000, {"<a", "@v=" + t1023, "t:" + t1023, "END"}},
        {"<!-- a -- b ->--><?xml v=\"1\"?><![CDATA[<a>]]]>",
         {"<!--", "s: a -- b ->", "-->", "<?", "s:xml v=\"1\"", "?>", "<![CDATA[", "s:<a>]", "]]>", "END"}},
        {"<!---->", {"<!--", "s:", "-->", "END"}},
        {"<!-- open", {"<!--", "END"}},
        // Section text comes in chunks of 1,023, and a closer is looked for only within the
        // current chunk: one split across two chunks is not recognised.
        {"<!--" + c1500 + "-->", {"<!--", "s:" + c1500.substr(0, 1023), "s:" + c1500.substr(1023), "-->", "END"}},
        {"<!--" + c1021 + "-->after-->", {"<!--", "s:" + c1021 + "--", "s:>after", "-->", "END"}},
        {"<![CDATA[" + c1021 + "]]>x]]>", {"<![CDATA[", "s:" + c1021 + "]]", "s:>x", "]]>", "END"}},
        // Syntax errors, and the end of the input where a tag may or may not end.
        {"</a b>", {"ERROR"}}, {"<", {"ERROR"}}, {"<a/x>", {"<a", "ERROR"}},
        {"<a x=\"1", {"<a", "ERROR"}}, {"<a x=1", {"<a", "ERROR"}}, {"<a b<c>", {"<a", "ERROR"}},
        {"<a xy", {"<a", "END"}}, {"", {"END"}},
        {std::string("<a>b\0c</a>", 10), {"<a", "t:b", "END"}},  // a NUL byte ends the document
    };
    for (const auto& [doc, want] : cases) EXPECT_EQ(tokens(&doc), want) << doc.substr(0, 60);

    // `<!ENTITY` is recognised only when the byte after the seven letters in the name
    // buffer is zero: never after a longer name left a letter there (a new document keeps
    // the buffer), until a name of seven is read out with xt_get_tag_name.
    const std::string longer = "<abcdefghij>", decl = "<!ENTITY e \"a>b\">", after = decl + "x";
    EXPECT_EQ(tokens(&longer), (Texts{"<abcdefghij", "END"}));
    EXPECT_EQ(tokens(&decl), (Texts{"<!ENTITY", "@e=", "@\"a=", "t:b\">", "END"}));
    EXPECT_EQ(tokens(&after), (Texts{"entity{", "s: e \"a>b\"", "}entity", "t:x", "END"}));
}

// A value read as element content by getIntVal, getLongVal and getBoolVal, then as an
// attribute by their getAttribute... twins: "sum of the results,int,long,bool attribute
// int,long,bool".
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

TEST(Tokenizer, ValueAccessors)
{
    // Numbers as atoi/atol read them, held at the 32-bit limits (a long as wide as on the
    // device) from the first 31 characters; true only for a "True", "true", "TRUE" prefix.
    const std::pair<std::string, const char*> cases[] = {
        {" -7abc", "0,-7,-7,0 -7,-7,0"},
        {"99999999999", "0,2147483647,2147483647,0 2147483647,2147483647,0"},
        {"-99999999999", "0,-2147483648,-2147483648,0 -2147483648,-2147483648,0"},
        {"1" + std::string(40, '0'), "0,2147483647,2147483647,0 2147483647,2147483647,0"},
        {"trueish", "0,0,0,1 0,0,1"}, {"TRUE", "0,0,0,1 0,0,1"}, {"tRue", "0,0,0,0 0,0,0"},
        {"<w/>5", "-3,0,0,0 0,0,0"},  // content holding an element fails
    };
    for (const auto& [text, want] : cases) EXPECT_EQ(typed(text), want) << text;

    // Text keeps its blanks; a full buffer returns at once, leaving the rest unread; a
    // nested element, a comment or the end of input fail, keeping what was read.
    char buf[16];
    const std::tuple<const char*, int, int, const char*, int> strings[] = {
        {"<a> a &amp; b </a><b/>", 16, 0, " a & b ", XT_START_TAG}, {"<a>ab cd</a>", 3, 0, "ab", XT_WHITESPACE},
        {"<a>x<b/></a>", 16, -1, "x", XT_END_TAG}, {"<a>x<!--c--></a>", 16, -1, "x", XT_SECTION_TEXT},
        {"<a>x", 16, -1, "x", XT_END}};
    for (const auto& [doc, size, result, text, next] : strings) {
        start(doc);
        xt_get_token();
        EXPECT_EQ(getStringVal(buf, size), result) << doc;
        EXPECT_STREQ(buf, text) << doc;
        EXPECT_EQ(xt_get_token(), next) << doc;
    }
    start("<a s='hello world'>");
    xt_get_token();
    xt_get_token();
    EXPECT_EQ(getAttributeStringVal(buf, 6), 0);
    EXPECT_STREQ(buf, "hello");
}

// The file reader: text across its 1,024-byte blocks, a NUL byte that ends the file's
// document, the file closed afterwards, and a file that opens but cannot be read.
TEST(Tokenizer, FileReaderReadsBlockByBlockAndStopsAtNul)
{
    const std::string text(2500, 'x'), head = "<a>" + text + "</a><b>12";
    sandbox::write_file("/tmp/doc.xml", head + std::string(1, '\0') + "</b>");
    {
        XmlDocument doc("/tmp/doc.xml");
        ASSERT_TRUE(doc.ok());
        EXPECT_EQ(tokens(nullptr), (Texts{"<a", "t:" + text.substr(0, 1023), "</a", "<b", "t:12", "END"}));
        EXPECT_EQ(xt_input_offset(), static_cast<long>(head.size()));
        EXPECT_FALSE(doc.read_error());
    }
    EXPECT_EQ(xml.file, nullptr);
    EXPECT_FALSE(XmlDocument("/tmp/missing.xml").ok());
    XmlDocument dir("/tmp");
    EXPECT_EQ(xt_get_token(), XT_END);
    EXPECT_TRUE(dir.read_error());
}

}  // namespace
