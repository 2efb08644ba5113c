// A small picture as a file that any program opens and this one reads again.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

constexpr int32_t thumbnailWidth = 308, thumbnailHeight = 257;

// The display picture at a quarter of its size: top-down, 0x00RRGGBB. Empty without picture memory.
std::vector<uint32_t> thumbnail();

// A bitmap file (24 bits a pixel) of such pixels, and the pixels of one; empty of any other file.
std::string bitmapOfThumbnail(const std::vector<uint32_t>& pixels);
std::vector<uint32_t> thumbnailOfBitmap(const std::string& file);
