#pragma once
// The pieces the document parsers are built from (the parsers themselves are declared
// in dravikAPI.h). Each reads the tokens of the element the tokenizer is in.
//
//   getTSAttributes(buf, size)     the `server` attribute of a time-server element
//   ConvertDay(text)               "su" 0 .. "sa" 6, -1 unrecognised (lower case only)
//   ConvertTime(text, &seconds)    "hh:mm" to seconds after midnight; no colon: unchanged
//   ConvertMediaType(text)         "video"/"vid" 0, "image"/"img" 1, "html" 2, else -1
//   parseIntoContentLayout(layout) one `layout` element, after its start tag
//   getVidAreaAttributes(area)     one video-area element, after its start tag
#include "xml/dravikAPI.h"

int getTSAttributes(char* buf, int size);
int ConvertDay(const char* text);
void ConvertTime(const char* text, int* seconds);
int ConvertMediaType(const char* text);
int parseIntoContentLayout(DRAVIK_LAYOUT* layout);
int getVidAreaAttributes(LAYOUT_VID_AREA* area);
