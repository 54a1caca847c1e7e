#include "gk/GKValue.h"

#include "gk/GKError.h"

#include <utility>

namespace GK {

namespace {

[[noreturn]] void refuse(const GKValue& value, const char* wanted) {
  throw GKError("convertFromGKValue", "convertFromGKValue",
                std::string("Parameter type is ") + value.typeName() + " instead of " + wanted);
}

} // namespace

const char* GKValue::typeName() const noexcept {
  switch (type()) {
  case Type::Invalid:
    return "invalid";
  case Type::Bool:
    return "bool";
  case Type::Int:
    return "int";
  case Type::Float:
    return "float";
  case Type::String:
    return "string";
  case Type::Array:
    return "array";
  }
  return "invalid";
}

bool GKValue::toBool() const {
  const bool* value = std::get_if<bool>(&fData);
  if (value == nullptr) {
    refuse(*this, "bool");
  }
  return *value;
}

std::int32_t GKValue::toInt() const {
  const std::int32_t* value = std::get_if<std::int32_t>(&fData);
  if (value == nullptr) {
    refuse(*this, "int");
  }
  return *value;
}

float GKValue::toFloat() const {
  if (const std::int32_t* value = std::get_if<std::int32_t>(&fData)) {
    return static_cast<float>(*value);
  }
  const float* value = std::get_if<float>(&fData);
  if (value == nullptr) {
    refuse(*this, "float");
  }
  return *value;
}

const std::string& GKValue::toString() const {
  const std::string* value = std::get_if<std::string>(&fData);
  if (value == nullptr) {
    refuse(*this, "string");
  }
  return *value;
}

const GKValue::Array& GKValue::toArray() const {
  const Array* value = std::get_if<Array>(&fData);
  if (value == nullptr) {
    refuse(*this, "array");
  }
  return *value;
}

std::size_t GKValue::size() const noexcept {
  const Array* value = std::get_if<Array>(&fData);
  return value != nullptr ? value->size() : 0;
}

const GKValue& GKValue::operator[](std::size_t index) const {
  const Array& array = toArray();
  if (index >= array.size()) {
    throw GKError("GKValue", "operator[]",
                  "index " + std::to_string(index) + " in an array of " +
                      std::to_string(array.size()));
  }
  return array[index];
}

GKValue& GKValue::operator[](std::size_t index) {
  return const_cast<GKValue&>(std::as_const(*this)[index]);
}

void GKValue::arraySetSize(std::size_t size) {
  if (type() != Type::Array) {
    fData.emplace<Array>();
  }
  std::get<Array>(fData).resize(size);
}

void GKValue::arrayPush(GKValue element) {
  if (type() != Type::Array) {
    fData.emplace<Array>();
  }
  std::get<Array>(fData).push_back(std::move(element));
}

} // namespace GK
