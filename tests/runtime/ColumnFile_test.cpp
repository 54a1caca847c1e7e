#include "runtime/output/ColumnFile.h"
#include "support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <sys/stat.h>

// A table that numpy maps: its bytes, and what does not fit into it. That numpy reads it is shown
// in tests/python.

namespace {

using gk::formats::OutputError;
using gk::messages::KeyType;
using gk::runtime::ColumnFile;
using gk::runtime::Sample;
using gk::test::readFile;
using testing::HasSubstr;
using testing::StartsWith;

KeyType typeOf(std::string_view key) {
  return key == "int" ? KeyType::Int : key == "float" ? KeyType::Float : KeyType::Any;
}

struct ColumnFileTest : testing::Test {
  std::unique_ptr<ColumnFile> make(const std::vector<std::string>& keys) const {
    return std::make_unique<ColumnFile>(path, gk::formats::OutputFileOptions{}, keys, typeOf);
  }

  /// The dictionary in the header of the file, filled up with blanks.
  std::string header() const {
    const std::string bytes = readFile(path);
    return bytes.substr(10, headerSize(bytes));
  }
  std::string rows() const {
    const std::string bytes = readFile(path);
    return bytes.substr(10 + headerSize(bytes));
  }
  static std::size_t headerSize(const std::string& bytes) {
    return static_cast<unsigned char>(bytes.at(8)) + 256U * static_cast<unsigned char>(bytes.at(9));
  }

  /// What `commit` says.
  static std::string complaintOf(ColumnFile& sut) {
    try {
      sut.commit();
    } catch (const OutputError& error) {
      EXPECT_EQ(error.kind(), OutputError::Kind::Write);
      return error.what();
    }
    return "nothing";
  }

  std::ptrdiff_t files() const {
    return std::distance(std::filesystem::directory_iterator(folder.path()),
                         std::filesystem::directory_iterator());
  }

  const gk::test::TemporaryFolder folder;
  const std::string path = folder.file("out.npy");
};

/// The bytes of a number as it lies in memory.
template <class Number> std::string bytesOf(Number number) {
  std::string bytes(sizeof number, '\0');
  std::memcpy(bytes.data(), &number, sizeof number);
  return bytes;
}

TEST_F(ColumnFileTest, HasAHeaderAndPackedRows) {
  const auto sut = make({"float", "int", "else"});
  sut->add(20'000, {{"float", 0.5F}, {"int", -7}, {"else", true}});
  sut->add(40'000, {{"float", 1.5F}, {"int", 8}, {"else", false}});
  sut->commit();
  EXPECT_THAT(readFile(path), StartsWith(std::string("\x93NUMPY\x01\x00", 8)));
  EXPECT_THAT(header(), StartsWith("{'descr': [('time', '<f8'), ('float', '<f4'), ('int', '<i4'), "
                                   "('else', '<i4'), ], 'fortran_order': False, 'shape': (2,), }"));
  EXPECT_EQ((10 + header().size()) % 64, 0);
  EXPECT_EQ(header().back(), '\n');
  EXPECT_EQ(rows(), bytesOf(0.02) + bytesOf(0.5F) + bytesOf(-7) + bytesOf(1) + bytesOf(0.04) +
                        bytesOf(1.5F) + bytesOf(8) + bytesOf(0));
}

TEST_F(ColumnFileTest, TheFirstRowTellsTheTypeOfAKeyThatNobodyKnows) {
  const auto sut = make({"a", "b"});
  sut->add(0, {{"a", 1}, {"b", 1.0F}});
  sut->commit();
  EXPECT_THAT(header(), HasSubstr("('a', '<i4'), ('b', '<f4')"));
}

TEST_F(ColumnFileTest, WhatIsNotThereIsNoNumber) {
  const auto sut = make({"a", "float"});
  sut->add(0, {});
  sut->add(0, {{"a", 2.0F}});
  sut->commit();
  float value = 0.0F;
  std::memcpy(&value, rows().data() + 8, sizeof value);
  EXPECT_TRUE(std::isnan(value));
  EXPECT_EQ(rows().substr(16 + 8, 4), bytesOf(2.0F));
}

TEST_F(ColumnFileTest, WithoutRowsIsATableAllTheSame) {
  make({"int", "a"})->commit();
  EXPECT_THAT(header(), HasSubstr("('int', '<i4'), ('a', '<f4'), ], 'fortran_order': False, "
                                  "'shape': (0,), }"));
  EXPECT_EQ(rows(), "");
}

TEST_F(ColumnFileTest, OddLettersOfKeysAreThoseOfAPythonLiteral) {
  make({"it's \\ \n"})->commit();
  EXPECT_THAT(header(), HasSubstr("('it\\'s \\\\ \\x0a', '<f4')"));
  make({"Maß"})->commit();
  EXPECT_THAT(readFile(path), StartsWith(std::string("\x93NUMPY\x03\x00", 8)));
}

TEST_F(ColumnFileTest, AHeaderThatNeedsMoreThanTwoBytesForItsLengthHasFour) {
  make({std::string(70'000, 'x')})->commit();
  const std::string bytes = readFile(path);
  EXPECT_THAT(bytes, StartsWith(std::string("\x93NUMPY\x02\x00", 8)));
  std::uint32_t size = 0;
  std::memcpy(&size, bytes.data() + 8, sizeof size);
  EXPECT_EQ(bytes.size(), 12 + size);
  EXPECT_EQ(bytes.size() % 64, 0);
}

TEST_F(ColumnFileTest, MoreRowsThanAreWrittenAtOnceAreAllThere) {
  constexpr int many = 100'000;
  const auto sut = make({"int"});
  for (int i = 0; i < many; ++i) {
    sut->add(i, {{"int", i}});
  }
  sut->commit();
  EXPECT_THAT(header(), HasSubstr("'shape': (100000,)"));
  EXPECT_EQ(rows().size(), 12U * many);
  EXPECT_EQ(rows().substr(12U * many - 4), bytesOf(many - 1));
}

TEST_F(ColumnFileTest, AnotherTypeATextAndAMissingIntAreToldWithTheirKey) {
  auto changed = make({"a"});
  changed->add(0, {{"a", 1}});
  changed->add(1'020'000, {{"a", 1.0F}});
  changed->add(1'040'000, {{"a", "later ones are not told"}});
  EXPECT_EQ(complaintOf(*changed),
            "cannot write " + path + ": at 1.020 s a has another type than before: float");
  changed.reset();
  auto text = make({"b"});
  text->add(0, {{"b", "text"}});
  EXPECT_EQ(complaintOf(*text), "cannot write " + path + ": at 0.000 s b is no number but: string");
  text.reset();
  const auto missing = make({"int"});
  missing->add(0, {});
  EXPECT_THAT(complaintOf(*missing), HasSubstr("int is not there"));
}

TEST_F(ColumnFileTest, AnEarlierFileStaysUntilTheCommitAndAfterAnError) {
  gk::test::writeFile(path, "earlier");
  {
    const auto sut = make({"a"});
    sut->add(0, {{"a", "text"}});
    EXPECT_NE(complaintOf(*sut), "nothing");
  }
  EXPECT_EQ(readFile(path), "earlier");
  EXPECT_EQ(files(), 1);
}

TEST_F(ColumnFileTest, NamesThatAFieldCannotHaveAreRefused) {
  for (const std::vector<std::string>& keys :
       {std::vector<std::string>{"a", "a"}, {"time"}, {""}}) {
    try {
      make(keys);
      ADD_FAILURE() << keys.front();
    } catch (const OutputError& error) {
      EXPECT_EQ(error.kind(), OutputError::Kind::Name);
    }
  }
  EXPECT_EQ(files(), 0);
}

TEST_F(ColumnFileTest, WhatIsNoRegularFileIsRefused) {
  EXPECT_THROW(ColumnFile("/dev/null", {}, {"a"}, typeOf), OutputError);
}

} // namespace
