#pragma once

#include <cstddef>

/// Size of the text buffer that callers give to log_table2str_impl, terminator included.
constexpr std::size_t kLogTableSize = 255;
/// Format of one byte in every dump of wire data.
constexpr const char* kLogTableHexByte = "0x%02X";

/// Formats the elements start ... end - 1 of a table for a log line: "{ 0x01, 0x02 }". An empty range gives
/// "{  }". What does not fit is cut off. Hand it to a log statement as an argument, so that it runs only when
/// the level is enabled:
///
///     char text[kLogTableSize];
///     BRISCA_TRACE(logNode, "Data %s",
///                  log_table2str_impl(data, length, 0, text, sizeof text, kLogTableHexByte));
///
/// @param data    the whole table; may be null when the range is empty
/// @param end     index behind the last element
/// @param start   index of the first element
/// @param out     outSize bytes, zeroed first; receives at most outSize - 1 characters
/// @param format  printf format of one element
/// @return out. Any thread; no heap.
template <class Element>
char* log_table2str_impl(const Element* data, int end, int start, char* out, std::size_t outSize,
                         const char* format);

template <>
char* log_table2str_impl<unsigned char>(const unsigned char* data, int end, int start, char* out,
                                        std::size_t outSize, const char* format);
