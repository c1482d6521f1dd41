#pragma once
// The agent's own pull tokenizer for the server's XML documents, and the accessors that
// turn its tokens into typed values.
//
//   xt_initialize(getchar)      start a document read through `getchar`
//   xt_get_token()              the next token's kind (XT_* below)
//   xt_get_tag_name/attr_name/value   the current token's text, terminated
//   xt_input_offset()           how far into its input the tokenizer has read
//   getStringVal, getIntVal ... the element content after a start tag, typed
//   getAttribute...Val          the current attribute's value, typed
//   myFileGetChar, xml          characters from a FILE through a 1,024-byte buffer
//   XmlDocument                 opens a file into `xml` and closes it again (RAII)
//
// One process-wide instance, used from the main thread only. The character 0 is the end
// of the input: a NUL byte ends a document. Names keep at most 127 characters and a
// value at most 1,023; longer ones are cut silently.
#include <cstdio>

// Token kinds. The parsers switch on these numbers.
enum {
    XT_ERROR = -1,
    XT_END = 0,
    XT_START_TAG = 1,     // `<name`: the tokenizer is inside the tag head
    XT_END_TAG = 2,       // `</name>` or the `/>` of an empty element
    XT_ATTRIBUTE = 3,     // attr_name and value
    XT_TEXT = 4,          // a run of non-whitespace, entities resolved
    XT_WHITESPACE = 5,    // a run of whitespace
    XT_SECTION_TEXT = 6,  // a chunk of a comment, CDATA, PI or entity declaration
    XT_COMMENT_START = 7,
    XT_COMMENT_END = 8,
    XT_CDATA_START = 9,
    XT_CDATA_END = 10,
    XT_PI_START = 11,
    XT_PI_END = 12,
    XT_ENTITY_DECL_START = 13,
    XT_ENTITY_DECL_END = 14,
};

constexpr int kXtNameSize = 128;
constexpr int kXtValueSize = 1024;

// Returns the next byte of the input as an unsigned char widened to int, 0 at the end.
// The tokenizer calls it no more once it has returned 0, until the next xt_initialize.
using xt_getchar_fn = int (*)(void);

void xt_initialize(xt_getchar_fn getchar_callback);
int xt_get_token(void);
char* xt_get_tag_name(void);
char* xt_get_attr_name(void);
char* xt_get_value(void);
// The hook for entity names beyond the five predefined ones: knows none, returns 0.
int xt_resolve_entity(const char* name, int length);
// Where the tokenizer stands in its input: the bytes taken since xt_initialize, less
// one held pushed back. When a parser gives up, that is where it stopped; at the end
// of the input, where the input ended (at a NUL byte: its offset).
long xt_input_offset(void);

// The file reader behind myFileGetChar.
struct XML_READER {
    FILE* file;
    unsigned char buffer[1024];
    unsigned char* next;  // next unread byte; null: the buffer is used up, read a block
    int count;            // valid bytes in buffer
};
extern XML_READER xml;

int myFileGetChar(void);

// Opens `path` for reading into `xml`, empties the reader and starts the tokenizer on
// it; closes the file when it goes out of scope. `ok()` is false when fopen failed.
class XmlDocument {
public:
    explicit XmlDocument(const char* path);
    ~XmlDocument();
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;
    bool ok() const { return xml.file != nullptr; }
    // True when reading the file failed (as opposed to reaching its end).
    bool read_error() const;
};

// Value accessors: 0 on success, -1 on failure. The numeric and boolean ones store 0
// first, so an absent or unreadable value reads as 0. A boolean is true only for a
// "True", "true" or "TRUE" prefix. A long holds 32 bits, as on the device, on every
// target.
int getStringVal(char* buf, int size);
int getIntVal(int* out);
int getLongVal(long* out);
int getBoolVal(int* out);
int getAttributeStringVal(char* buf, int size);
int getAttributeIntegerVal(int* out);
int getAttributeLongVal(long* out);
int getAttributeBoolVal(int* out);

// For an attribute a parser does not know: accepted and ignored.
int UnknownAttributeWarning(const char* name);
