#include "xml/tokenizer.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "core/text.h"

XML_READER xml;

namespace {

// The tokenizer's state. None of the three text buffers is kept terminated while it
// fills; the xt_get_* functions terminate them on demand.
char tag_name[kXtNameSize];
int tag_name_length;
char attr_name[kXtNameSize];
int attr_name_length;
char value[kXtValueSize];
int value_length;
int input_char;  // one byte of push-back, 0 when empty
xt_getchar_fn input_getchar;
bool input_ended;  // the callback has returned 0: the document is over
long input_offset;  // bytes the callback has given since xt_initialize
int (*c_scan)(void);  // the scanner the next xt_get_token runs
int got_tail;         // a section scanner has seen its closing sequence
int entity_decl_quotes;  // double quotes seen so far in the current entity declaration

constexpr int kMaxName = kXtNameSize - 1;
constexpr int kMaxValue = kXtValueSize - 1;
constexpr int kMaxEntityName = 31;

// The file reader, inlined for the common case of a document read from a file.
inline int file_getchar()
{
    if (xml.next == nullptr) {
        if (xml.file == nullptr) return 0;
        std::size_t n = std::fread(xml.buffer, 1, sizeof xml.buffer, xml.file);
        if (n == 0) return 0;
        xml.next = xml.buffer;
        xml.count = static_cast<int>(n);
    }
    int c = *xml.next++;
    if (xml.next >= xml.buffer + xml.count) xml.next = nullptr;
    return c;
}

// Once the callback has returned 0 the input stays ended, so a NUL byte ends the
// document even where a scanner drops the 0 it read and would read on.
inline int read_input()
{
    if (input_ended) return 0;
    int c = input_getchar == myFileGetChar ? file_getchar() : input_getchar();
    if (c == 0) input_ended = true;
    else ++input_offset;
    return c;
}

inline int get_char()
{
    if (input_char) {
        int c = input_char;
        input_char = 0;
        return c;
    }
    return read_input();
}

// One byte only: a second push-back overwrites the first. Pushing back 0 (the end of
// the input) leaves nothing, and the callback then reports the end again.
inline void push_back(int c) { input_char = c; }

inline bool is_whitespace(int c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f'; }

int skip_whitespace()
{
    int c;
    do c = get_char();
    while (is_whitespace(c));
    return c;
}

inline void append_value(int c)
{
    if (value_length < kMaxValue) value[value_length++] = static_cast<char>(c);
}
inline void append_tag_name(int c)
{
    if (tag_name_length < kMaxName) tag_name[tag_name_length++] = static_cast<char>(c);
}
inline void append_attr_name(int c)
{
    if (attr_name_length < kMaxName) attr_name[attr_name_length++] = static_cast<char>(c);
}

// Compares exactly n bytes, terminators included when n reaches them.
bool equal(const char* a, const char* b, int n) { return std::memcmp(a, b, static_cast<std::size_t>(n)) == 0; }

bool is_name_char(int c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

// Called after "&". Returns the character the caller appends: the predefined entity's
// character, or, for a name nobody resolves, ";" after "&" and the name have been put
// into `value` literally. So `&foo;` stays `&foo;` and `&foo ` becomes `&foo;` and the
// blank: the semicolon is added on purpose. An "&" followed by no name character at
// all (`&#60;`, `& `) is returned as "&" alone, with the character after it left in
// the input. Returns 0 at the end of the input.
int scan_entity()
{
    char name[kMaxEntityName];
    int length = 0;
    int c = 0;
    bool ended_by_semicolon = false;
    while (length < kMaxEntityName) {
        c = get_char();
        if (c == 0) return 0;
        if (c == ';') {
            ended_by_semicolon = true;
            break;
        }
        if (!is_name_char(c)) {
            push_back(c);
            break;
        }
        name[length++] = static_cast<char>(c);
    }
    if (length == 0) {
        if (ended_by_semicolon) push_back(';');
        return '&';
    }
    std::string_view n(name, static_cast<std::size_t>(length));
    if (n == "gt") return '>';
    if (n == "lt") return '<';
    if (n == "amp") return '&';
    if (n == "apos") return '\'';
    if (n == "quot") return '"';
    int resolved = xt_resolve_entity(name, length);
    if (resolved != 0) return resolved;
    append_value('&');
    for (int i = 0; i < length; ++i) append_value(name[i]);
    return ';';
}

int scan_body();
int scan_head();
int scan_comment();
int scan_cdata();
int scan_pi();
int scan_entity_decl();

int scan_body()
{
    value_length = 0;
    int c = get_char();
    if (c == 0) return XT_END;
    if (c == '<') {
        int d = get_char();
        tag_name_length = 0;
        bool end_tag = false;
        if (d == '/') {
            end_tag = true;
            d = get_char();
        }
        if (d == 0) return XT_ERROR;
        for (;;) {
            if (is_whitespace(d)) {
                d = skip_whitespace();
                if (d == 0) return XT_ERROR;
                break;
            }
            if (d == '/' || d == '>') break;
            append_tag_name(d);
            if (tag_name_length == 3 && equal(tag_name, "!--", 3)) {
                c_scan = scan_comment;
                return XT_COMMENT_START;
            }
            if (tag_name_length == 1 && tag_name[0] == '?') {
                c_scan = scan_pi;
                return XT_PI_START;
            }
            // Eight bytes on purpose: the byte after the seven letters must be zero, and
            // it is whatever an earlier, longer name left there unless xt_get_tag_name
            // terminated the buffer at seven. So `<!ENTITY` is recognised only then.
            if (tag_name_length == 7 && equal(tag_name, "!ENTITY", 8)) {
                c_scan = scan_entity_decl;
                entity_decl_quotes = 0;
                return XT_ENTITY_DECL_START;
            }
            if (tag_name_length == 8 && equal(tag_name, "![CDATA[", 8)) {
                c_scan = scan_cdata;
                return XT_CDATA_START;
            }
            d = get_char();
            if (d == 0) return XT_ERROR;
        }
        if (end_tag) return d == '>' ? XT_END_TAG : XT_ERROR;
        push_back(d);
        c_scan = scan_head;
        return XT_START_TAG;
    }

    int kind;
    if (c == '&') {
        kind = XT_TEXT;
        c = scan_entity();
        if (c == 0) return kind;
    } else {
        kind = is_whitespace(c) ? XT_WHITESPACE : XT_TEXT;
    }
    append_value(c);
    // The run goes on through get_char, so a character that ended an entity name and
    // was pushed back stays in the text in its place.
    const bool blank = kind == XT_WHITESPACE;
    for (;;) {
        c = get_char();
        if (c == 0 || c == '<' || c == '&' || is_whitespace(c) != blank) {
            push_back(c);
            return kind;
        }
        append_value(c);
    }
}

int scan_head()
{
    int c = skip_whitespace();
    if (c == '>') {
        c_scan = scan_body;
        return scan_body();
    }
    if (c == '/') {
        int d = get_char();
        if (d != '>') {
            push_back(d);
            return XT_ERROR;
        }
        c_scan = scan_body;
        return XT_END_TAG;
    }
    if (c == 0) return XT_END;
    attr_name_length = 0;
    value_length = 0;
    if (c != '=') {
        while (!is_whitespace(c)) {
            if (c == '<') return XT_ERROR;
            append_attr_name(c);
            c = get_char();
            if (c == '=') break;
            if (c == 0) return XT_END;
            if (c == '>') {  // an attribute without a value, last in the head
                push_back(c);
                return XT_ATTRIBUTE;
            }
        }
        if (c != '=') {
            c = skip_whitespace();
            if (c != '=') {  // an attribute without a value
                push_back(c);
                return XT_ATTRIBUTE;
            }
        }
    }
    int q = skip_whitespace();
    if (q == '"' || q == '\'') {
        for (;;) {
            c = get_char();
            if (c == 0) return XT_ERROR;
            if (c == q) return XT_ATTRIBUTE;
            if (c == '&') {
                c = scan_entity();
                if (c == 0) return XT_ERROR;
            }
            append_value(c);
        }
    }
    for (c = q;; c = get_char()) {
        if (c == 0) return XT_ERROR;
        if (is_whitespace(c)) return XT_ATTRIBUTE;
        if (c == '>') {
            push_back(c);
            return XT_ATTRIBUTE;
        }
        append_value(c);
    }
}

// The body of every markup-section scanner. `closes(c)` tells whether c, the current
// character, completes the closing sequence given what the current chunk holds, and how
// many characters of the chunk's end belong to that sequence. The look-back never
// reaches into an earlier chunk, so a closing sequence split at a 1,023-character chunk
// boundary is not recognised: kept so on purpose.
template <int EndKind, typename Closes>
int scan_section(Closes closes)
{
    if (got_tail) {
        got_tail = 0;
        c_scan = scan_body;
        return EndKind;
    }
    value_length = 0;
    for (;;) {
        int c = get_char();
        if (c == 0) return XT_END;
        int strip = closes(c);
        if (strip >= 0) {
            value_length -= strip;
            got_tail = 1;
            return XT_SECTION_TEXT;
        }
        value[value_length++] = static_cast<char>(c);
        if (value_length == kMaxValue) return XT_SECTION_TEXT;
    }
}

// Whether the chunk so far ends in `tail`.
bool chunk_ends_with(std::string_view tail)
{
    auto n = static_cast<int>(tail.size());
    return value_length >= n && equal(value + value_length - n, tail.data(), n);
}

int scan_comment()
{
    return scan_section<XT_COMMENT_END>([](int c) { return c == '>' && chunk_ends_with("--") ? 2 : -1; });
}

int scan_cdata()
{
    return scan_section<XT_CDATA_END>([](int c) { return c == '>' && chunk_ends_with("]]") ? 2 : -1; });
}

int scan_pi()
{
    return scan_section<XT_PI_END>([](int c) { return c == '>' && chunk_ends_with("?") ? 1 : -1; });
}

// A ">" after an odd number of double quotes is inside a quoted string and kept. The
// count runs over the whole declaration, across chunks.
int scan_entity_decl()
{
    return scan_section<XT_ENTITY_DECL_END>([](int c) {
        if (c == '"') ++entity_decl_quotes;
        return c == '>' && entity_decl_quotes % 2 == 0 ? 0 : -1;
    });
}

// atoi and atol with the undefined overflow pinned down: out-of-range values stop at
// the type's limits. The device's long is 32 bits wide, so a long stops at the 32-bit
// limits on every target: a document reads the same on a 64-bit host as on the device.
long to_long(const char* text)
{
    long long v = std::strtoll(text, nullptr, 10);
    if (v > INT32_MAX) return INT32_MAX;
    if (v < INT32_MIN) return INT32_MIN;
    return static_cast<long>(v);
}

int to_int(const char* text) { return static_cast<int>(to_long(text)); }

bool is_true(const char* text)
{
    return std::strncmp(text, "True", 4) == 0 || std::strncmp(text, "true", 4) == 0 ||
           std::strncmp(text, "TRUE", 4) == 0;
}

}  // namespace

void xt_initialize(xt_getchar_fn getchar_callback)
{
    input_getchar = getchar_callback;
    c_scan = scan_body;
    // A parse that stopped early can leave a pushed-back byte or a section's pending end
    // behind; a new document starts without them. The name buffers keep their bytes.
    input_char = 0;
    got_tail = 0;
    input_ended = false;
    input_offset = 0;
}

int xt_get_token(void)
{
    if (c_scan == nullptr) return XT_END;  // never initialised
    return c_scan();
}

char* xt_get_tag_name(void)
{
    tag_name[tag_name_length] = '\0';
    return tag_name;
}

char* xt_get_attr_name(void)
{
    attr_name[attr_name_length] = '\0';
    return attr_name;
}

char* xt_get_value(void)
{
    value[value_length] = '\0';
    return value;
}

int xt_resolve_entity(const char*, int) { return 0; }

long xt_input_offset(void) { return input_offset - (input_char != 0 ? 1 : 0); }

int myFileGetChar(void) { return file_getchar(); }

XmlDocument::XmlDocument(const char* path)
{
    xml.file = std::fopen(path, "r");
    xml.next = nullptr;  // no bytes of an earlier file are replayed
    xml.count = 0;
    if (xml.file != nullptr) xt_initialize(myFileGetChar);
}

XmlDocument::~XmlDocument()
{
    if (xml.file != nullptr) std::fclose(xml.file);
    xml.file = nullptr;
    xml.next = nullptr;
}

bool XmlDocument::read_error() const { return xml.file != nullptr && std::ferror(xml.file) != 0; }

int getStringVal(char* buf, int size)
{
    if (size <= 0) return -1;
    buf[0] = '\0';
    int length = 0;
    int kind = xt_get_token();
    if (kind == XT_END_TAG) return 0;  // an element without content
    while (kind == XT_TEXT || kind == XT_WHITESPACE) {
        length += static_cast<int>(copy_text(buf + length, static_cast<std::size_t>(size - length),
                                             std::string_view(xt_get_value(), static_cast<std::size_t>(value_length))));
        // Full: the rest of the content and the end tag stay unread in the stream.
        if (length == size - 1) return 0;
        kind = xt_get_token();
        if (kind == XT_END_TAG) return 0;
    }
    return -1;
}

int getIntVal(int* out)
{
    *out = 0;
    char buf[32];
    if (getStringVal(buf, sizeof buf) != 0) return -1;
    *out = to_int(buf);
    return 0;
}

int getLongVal(long* out)
{
    *out = 0;
    char buf[32];
    if (getStringVal(buf, sizeof buf) != 0) return -1;
    *out = to_long(buf);
    return 0;
}

int getBoolVal(int* out)
{
    *out = 0;
    char buf[32];
    if (getStringVal(buf, sizeof buf) != 0) return -1;
    *out = is_true(buf) ? 1 : 0;
    return 0;
}

int getAttributeStringVal(char* buf, int size)
{
    if (size <= 0) return -1;
    copy_text(buf, static_cast<std::size_t>(size), std::string_view(xt_get_value(), static_cast<std::size_t>(value_length)));
    return 0;
}

int getAttributeIntegerVal(int* out)
{
    *out = 0;
    char buf[32];
    getAttributeStringVal(buf, sizeof buf);
    *out = to_int(buf);
    return 0;
}

int getAttributeLongVal(long* out)
{
    *out = 0;
    char buf[32];
    getAttributeStringVal(buf, sizeof buf);
    *out = to_long(buf);
    return 0;
}

int getAttributeBoolVal(int* out)
{
    *out = 0;
    char buf[32];
    getAttributeStringVal(buf, sizeof buf);
    *out = is_true(buf) ? 1 : 0;
    return 0;
}

int UnknownAttributeWarning(const char*) { return 0; }
