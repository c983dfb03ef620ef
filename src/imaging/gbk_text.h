#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// Document and file texts are GBK bytes; the screen and the command line speak UTF-8.
// Both conversions fail (false, out untouched) on bytes that are not valid in the source encoding.
bool Utf8ToGbk(std::string_view utf8, std::string& gbk);
bool GbkToUtf8(std::string_view gbk, std::string& utf8);

// For messages: the UTF-8 form, or the bytes with every non-ASCII byte shown as \xNN when they are not GBK.
std::string GbkForDisplay(std::string_view gbk);

// Copies GBK text into a fixed field of `size` bytes (NUL included), cutting by bytes without splitting a
// two-byte character: a byte of 128 or above starts a pair. Returns the number of text bytes stored.
size_t CopyGbkField(char* field, size_t size, std::string_view gbk);
