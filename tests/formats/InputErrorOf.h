#pragma once

#include "formats/recording/OpenRecording.h"
#include "formats/text/InputError.h"
#include "PlayedTo.h"
#include "TempFile.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

/// What is wrong with a file of this content and ending, after its name: "LINE: text".
inline std::string inputErrorOf(const std::string& ending, std::string_view content) {
  const TempFile file(ending, content);
  try {
    const auto recording = gk::formats::openRecording(file.path(), testKeyType);
    while (recording->time()) {
      recording->skip();
    }
  } catch (const gk::formats::InputError& error) {
    const std::string text = error.what();
    EXPECT_TRUE(text.starts_with(file.path() + ":"));
    return text.substr(file.path().size() + 1);
  }
  ADD_FAILURE() << "no error in " << content;
  return {};
}
