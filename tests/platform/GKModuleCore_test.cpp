#include "gk/GKModule.h"
#include "support/PlatformFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace GK {
namespace {

using test::errorOf;
using test::IsError;
using test::IsRefusal;

/// A module whose methods the test declares and binds from outside.
class Open : public GKModule {
public:
  Open() : GKModule(nullptr, "Open") {}

  using GKModule::addParam;
  using GKModule::bindMethod;
  using GKModule::bindOverload;
  using GKModule::functionName;
  using GKModule::getCurrentMethodDescription;
  using GKModule::setReturn;

  int add(const int& left, const int& right) {
    ++entered;
    return left + right;
  }
  void takeFloat(const float& value) { taken = value; }
  void takeFloatAndText(const float& value, const std::string& text) {
    taken = text + "/" + std::to_string(static_cast<int>(value));
  }
  void takeText(const std::string& text) { taken = text; }
  void takeBool(const bool& value) { taken = value; }
  void takeList(const std::vector<float>& list) { taken = GKConvert<std::vector<float>>::to(list); }
  void takeAny(const GKValue& value) { taken = value; }
  GKValue giveAny() const { return GKValue::Array{1, "x"}; }
  std::vector<std::string> giveNames() const { return {"a", "b"}; }
  void nothing() { ++entered; }
  virtual int overridden() { return 1; }

  /// Binds a method with one parameter.
  template <class R, class A> void bindOne(const char* name, R (Open::*function)(A)) {
    functionName(name, "Open", "");
    addParam("value", "");
    bindMethod(function, this);
  }

  GKValue taken;
  int entered = 0;
};

class Derived : public Open {
public:
  int overridden() override { return 2; }
};

void bindAdd(Open& module) {
  module.functionName("add", "Open", "Adds two numbers.", 5);
  module.addParam("left", "First number.");
  module.addParam("right", "Second number.");
  module.setReturn("sum", "Their sum.");
  module.bindMethod(&Open::add, static_cast<Open*>(&module));
}

TEST(GKModuleCore, BoundMethodIsCalledWithConvertedArguments) {
  Open sut;
  bindAdd(sut);

  EXPECT_EQ(sut.callMethod("add", {2, 3}), GKValue(5));
}

TEST(GKModuleCore, DeclarationIsKeptWithTheTypesOfTheSignature) {
  Open sut;
  bindAdd(sut);

  const std::vector<GKMethodDescription> methods = sut.getMethods();

  ASSERT_EQ(methods.size(), 1u);
  EXPECT_EQ(methods[0].name, "add");
  EXPECT_EQ(methods[0].module, "Open");
  EXPECT_EQ(methods[0].description, "Adds two numbers.");
  EXPECT_EQ(methods[0].mask, 5);
  ASSERT_EQ(methods[0].params.size(), 2u);
  EXPECT_EQ(methods[0].params[0].name, "left");
  EXPECT_EQ(methods[0].params[0].description, "First number.");
  EXPECT_EQ(methods[0].params[0].type, "int");
  EXPECT_EQ(methods[0].params[1].name, "right");
  EXPECT_EQ(methods[0].result.name, "sum");
  EXPECT_EQ(methods[0].result.description, "Their sum.");
  EXPECT_EQ(methods[0].result.type, "int");
}

TEST(GKModuleCore, MethodsAreListedInTheOrderOfBinding) {
  Open sut;
  sut.bindOne("zeta", &Open::takeText);
  bindAdd(sut);
  sut.bindOne("beta", &Open::takeBool);

  std::vector<std::string> names;
  for (const GKMethodDescription& method : sut.getMethods()) {
    names.push_back(method.name);
  }
  EXPECT_THAT(names, ElementsAre("zeta", "add", "beta"));
}

TEST(GKModuleCore, EveryTypeHasItsName) {
  Open sut;
  sut.bindOne("f", &Open::takeFloat);
  sut.bindOne("s", &Open::takeText);
  sut.bindOne("b", &Open::takeBool);
  sut.bindOne("l", &Open::takeList);
  sut.bindOne("v", &Open::takeAny);
  sut.functionName("names", "Open", "");
  sut.bindMethod(&Open::giveNames, static_cast<const Open*>(&sut));

  EXPECT_EQ(sut.findMethod("f", 1)->params[0].type, "float");
  EXPECT_EQ(sut.findMethod("s", 1)->params[0].type, "string");
  EXPECT_EQ(sut.findMethod("b", 1)->params[0].type, "bool");
  EXPECT_EQ(sut.findMethod("l", 1)->params[0].type, "vector of float");
  EXPECT_EQ(sut.findMethod("v", 1)->params[0].type, "value");
  EXPECT_EQ(sut.findMethod("names", 0)->result.type, "vector of string");
  EXPECT_EQ(sut.findMethod("f", 1)->result.type, "");
}

TEST(GKModuleCore, MethodWithoutResultGivesAnInvalidValue) {
  Open sut;
  sut.functionName("nothing", "Open", "");
  sut.bindMethod(&Open::nothing, &sut);

  EXPECT_FALSE(sut.callMethod("nothing", {}).isValid());
  EXPECT_EQ(sut.entered, 1);
}

TEST(GKModuleCore, ValuesPassThroughAsTheyAre) {
  Open sut;
  sut.bindOne("takeAny", &Open::takeAny);
  sut.functionName("giveAny", "Open", "");
  sut.bindMethod(&Open::giveAny, static_cast<const Open*>(&sut));

  const GKValue given = sut.callMethod("giveAny", {});
  sut.callMethod("takeAny", {given});

  EXPECT_EQ(sut.taken, GKValue(GKValue::Array{1, "x"}));
}

TEST(GKModuleCore, ListsTravelAsArrays) {
  Open sut;
  sut.bindOne("takeList", &Open::takeList);

  sut.callMethod("takeList", {GKValue(GKValue::Array{1, 2.5f})});

  EXPECT_EQ(sut.taken, GKValue(GKValue::Array{1.0f, 2.5f}));
}

TEST(GKModuleCore, RefusedArgumentKeepsTheMethodFromBeingEntered) {
  Open sut;
  bindAdd(sut);

  EXPECT_THAT(errorOf([&] { sut.callMethod("add", {2, 3.0f}); }), IsRefusal("float", "int"));
  EXPECT_THAT(errorOf([&] { sut.callMethod("add", {GKValue(), 3}); }), IsRefusal("invalid", "int"));
  EXPECT_EQ(sut.entered, 0);
}

TEST(GKModuleCore, FloatParameterTakesFloatAndInt) {
  Open sut;
  sut.bindOne("takeFloat", &Open::takeFloat);

  sut.callMethod("takeFloat", {0.5f});
  EXPECT_EQ(sut.taken, GKValue(0.5f));
  sut.callMethod("takeFloat", {3});
  EXPECT_EQ(sut.taken, GKValue(3.0f));
  EXPECT_THAT(errorOf([&] { sut.callMethod("takeFloat", {true}); }), IsRefusal("bool", "float"));
}

TEST(GKModuleCore, TextBoolAndListParametersTakeNothingElse) {
  Open sut;
  sut.bindOne("takeText", &Open::takeText);
  sut.bindOne("takeBool", &Open::takeBool);
  sut.bindOne("takeList", &Open::takeList);

  EXPECT_THAT(errorOf([&] { sut.callMethod("takeText", {1}); }), IsRefusal("int", "string"));
  EXPECT_THAT(errorOf([&] { sut.callMethod("takeBool", {1}); }), IsRefusal("int", "bool"));
  EXPECT_THAT(errorOf([&] { sut.callMethod("takeList", {"x"}); }), IsRefusal("string", "array"));
  EXPECT_THAT(errorOf([&] {
                sut.callMethod("takeList", {GKValue(GKValue::Array{1, "x"})});
              }),
              IsRefusal("string", "float"));
  EXPECT_FALSE(sut.taken.isValid());
}

TEST(GKModuleCore, OverloadsAreToldApartByTheNumberOfArguments) {
  Open sut;
  sut.bindOne("take", &Open::takeText);
  sut.functionName("take", "Open", "");
  sut.addParam("value", "");
  sut.addParam("text", "");
  sut.bindOverload(&Open::takeFloatAndText, &sut);

  sut.callMethod("take", {"one"});
  EXPECT_EQ(sut.taken, GKValue("one"));
  sut.callMethod("take", {1.0f, "two"});
  EXPECT_EQ(sut.taken, GKValue("two/1"));
  EXPECT_EQ(sut.getMethods().size(), 2u);
}

TEST(GKModuleCore, FindMethodLooksAtNameAndNumberOfArguments) {
  Open sut;
  bindAdd(sut);

  ASSERT_NE(sut.findMethod("add", 2), nullptr);
  EXPECT_EQ(sut.findMethod("add", 2)->name, "add");
  EXPECT_EQ(sut.findMethod("add", 1), nullptr);
  EXPECT_EQ(sut.findMethod("sub", 2), nullptr);
}

TEST(GKModuleCore, UnknownMethodIsAnError) {
  Open sut;

  EXPECT_THAT(errorOf([&] { sut.callMethod("fly", {}); }),
              IsError("Open", "fly", "no such method"));
}

TEST(GKModuleCore, WrongNumberOfArgumentsIsAnError) {
  Open sut;
  bindAdd(sut);

  EXPECT_THAT(errorOf([&] { sut.callMethod("add", {1}); }),
              IsError("Open", "add", "does not take 1 argument"));
  EXPECT_THAT(errorOf([&] {
                sut.callMethod("add", {1, 2, 3});
              }),
              IsError("Open", "add", "does not take 3 arguments"));
  EXPECT_EQ(sut.entered, 0);
}

TEST(GKModuleCore, MissingAndSurplusParametersAreFoundWhenBinding) {
  Open sut;
  sut.functionName("add", "Open", "");
  sut.addParam("left", "");
  EXPECT_THAT(errorOf([&] { sut.bindMethod(&Open::add, &sut); }),
              IsError("Open", "bindMethod", HasSubstr("add")));

  sut.functionName("nothing", "Open", "");
  sut.addParam("surplus", "");
  EXPECT_THROW(sut.bindMethod(&Open::nothing, &sut), GKError);
  EXPECT_THAT(sut.getMethods(), IsEmpty());
}

TEST(GKModuleCore, ResultOfAMethodWithoutOneIsFoundWhenBinding) {
  Open sut;
  sut.functionName("nothing", "Open", "");
  sut.setReturn("something", "");

  EXPECT_THROW(sut.bindMethod(&Open::nothing, &sut), GKError);
}

TEST(GKModuleCore, WrongDeclaredResultTypeIsFoundWhenBinding) {
  Open sut;
  sut.functionName("giveNames", "Open", "");
  sut.getCurrentMethodDescription().result.type = "int";

  EXPECT_THROW(sut.bindMethod(&Open::giveNames, static_cast<const Open*>(&sut)), GKError);
}

TEST(GKModuleCore, BindingWithoutADeclarationIsAnError) {
  Open sut;
  bindAdd(sut);

  EXPECT_THROW(sut.bindMethod(&Open::nothing, &sut), GKError);
}

TEST(GKModuleCore, NameCanBeBoundTwiceOnlyAsOverload) {
  Open sut;
  sut.bindOne("take", &Open::takeText);

  EXPECT_THROW(sut.bindOne("take", &Open::takeFloat), GKError);

  sut.functionName("take", "Open", "");
  sut.addParam("value", "");
  EXPECT_THROW(sut.bindOverload(&Open::takeFloat, &sut), GKError) << "same number of arguments";
  EXPECT_EQ(sut.getMethods().size(), 1u);
}

TEST(GKModuleCore, FailedBindingDoesNotSpoilTheNextOne) {
  Open sut;
  sut.functionName("nothing", "Open", "");
  sut.addParam("surplus", "");
  EXPECT_THROW(sut.bindMethod(&Open::nothing, &sut), GKError);

  bindAdd(sut);

  EXPECT_EQ(sut.callMethod("add", {2, 3}), GKValue(5));
}

TEST(GKModuleCore, FunctorsCanBeBoundToo) {
  Open sut;
  sut.functionName("seven", "Open", "");
  sut.setReturn("number", "");
  sut.bindMethod(std::function<int()>([] { return 7; }));

  EXPECT_EQ(sut.callMethod("seven", {}), GKValue(7));
}

TEST(GKModuleCore, VirtualMethodsDispatchVirtually) {
  Derived sut;
  sut.functionName("overridden", "Open", "");
  sut.setReturn("number", "");
  sut.bindMethod(&Open::overridden, static_cast<Open*>(&sut));

  EXPECT_EQ(sut.callMethod("overridden", {}), GKValue(2));
}

TEST(GKModuleCore, ExceptionsOfTheMethodLeaveUnchanged) {
  Open sut;
  sut.functionName("fail", "Open", "");
  sut.bindMethod(std::function<int()>([]() -> int { throw std::out_of_range("far"); }));

  EXPECT_THROW(sut.callMethod("fail", {}), std::out_of_range);
}

} // namespace
} // namespace GK
