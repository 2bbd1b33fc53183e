// What a text that is no caption file, or not the one that its name says, seems to be.
#ifndef CAPTIONS_WHAT_IT_IS_H
#define CAPTIONS_WHAT_IT_IS_H

#include <string>
#include <string_view>

namespace qlnmedia::captions {

// By how it begins: "; seems to be WebVTT (.vtt)", to stand behind a reason; empty for what is not known.
std::string WhatItSeems(std::string_view file);

}  // namespace qlnmedia::captions

#endif
