#pragma once

#include <QString>

#include <cstddef>

// What every use of FFmpeg's libraries in this program shares.

// FFmpeg's text for an error code, also for the codes of its codecs and parsers that it has
// no text for.
QString ffmpegErrorText(int err);

// Call before opening any input; once is enough, more calls do nothing. Caps a single
// allocation inside FFmpeg at MaxFfmpegAllocation: a damaged header can declare a chunk of
// gigabytes in a file of a hundred bytes, and FFmpeg allocates and zeroes what it declares
// before it finds the file too short.
void ffmpegSetUp();
constexpr std::size_t MaxFfmpegAllocation = std::size_t(256) << 20;
