// Tests of the entry, the descriptor and its callbacks.

#include "provider/entry.h"

#include "tests/provider_test_base.h"

namespace {

using namespace messages;
using EntryTest = ProviderTest;
using Tags = std::vector<std::string>;

TEST_F(EntryTest, FillsTheDescriptorOnSuccessOnly) {
  EXPECT_FALSE(Construct({}));
  ASSERT_TRUE(Construct(Keys("file=a.py")));
  const tev_event_provider_t* const first = provider_;
  const std::string filled(reinterpret_cast<const char*>(first), sizeof *first);
  for (size_t at = 0; at < filled.size(); ++at) {
    const bool unused = at / 4 == 1 || at / 8 == 5 || at >= 96;
    EXPECT_TRUE(!unused || filled[at] == 0) << at;
  }
  EXPECT_EQ(provider_->schema_number, 1u);
  EXPECT_STREQ(provider_->name, "python_provider");
  EXPECT_STREQ(provider_->description, "Python event provider");
  EXPECT_NE(provider_->context, nullptr);
  const auto initialize = Library().Symbol<decltype(&python_event_provider_initialize)>(
      "_Z32python_event_provider_initializeP20tev_event_provider_tP17tev_type_system_t");
  EXPECT_EQ(provider_->initialize, initialize);
  EXPECT_EQ(provider_->noop_1() + provider_->noop_2(), 2u);
  EXPECT_FALSE(Construct(Keys("num-scripts=0")));
  ASSERT_TRUE(Construct(Keys("file=b.py")));
  EXPECT_EQ(provider_, first);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(first), sizeof *first), filled);

  std::string record(32, '\xAA');
  EXPECT_EQ(provider_->fill_record(nullptr, nullptr, record.data()), 1u);
  EXPECT_EQ(record, '\7' + std::string(13, '\0') + std::string(18, '\xAA'));
}

TEST_F(EntryTest, ServesScriptsByTheirPlaceInTheSources) {
  const auto named = [this](const std::string& name) {
    return Script(name + ".py", "return [__name__]", "def get_tag(): return __name__");
  };
  Start({named("c"), named("a"), named("b")});
  for (const char* again : {"", " again"}) {
    EXPECT_EQ(SourceTags(), (Tags{"dict_c", "dict_a", "dict_b"})) << again;
    EXPECT_EQ(log_.Take().size(), 2u + 3 * 5) << "the configuration is logged" << again;
  }
  EXPECT_EQ(FirstText(0) + FirstText(1) + FirstText(2) + FirstText(256 + 1), "caba") << "indexes have eight bits";
  EXPECT_EQ(Progress(3), TEV_PROGRESS_ERROR);
  EXPECT_EQ(provider_->progress(provider_, 0, nullptr), TEV_PROGRESS_REFUSED)
      << "the plug-in only passes the serializer on";
  Finalize();
  Start(Tags(256, Script("echo.py", "return [repr(args)]")), {{"python-import-arg-256-x", "1"}});
  EXPECT_EQ(SourceTags(), Tags(256, HashTag(dir_ / "echo.py")));
  EXPECT_EQ(FirstText(254), "{'256-x': '1'}");
  EXPECT_EQ(FirstText(255), "{'x': '1', '256-x': '1'}");
}

TEST_F(EntryTest, GetSourcesFailsIfAHostFunctionFails) {
  Start({Script("a.py", "return []"), Script("b.py", "return []")});
  const auto expect = [this](int standin::Faults::*function, int call, const char* message, int sources_left) {
    standin::faults.*function = call;
    EXPECT_EQ(SourceTags(), Tags{"(null)"});
    EXPECT_EQ(log_.Take(), Messages{Error(message)});
    EXPECT_EQ(tev_source_array_t::live, 0) << message;
    EXPECT_EQ(tev_source_t::live, sources_left) << message;
  };
  using standin::Faults;
  expect(&Faults::create_source_array, 1, "[python_event_provider_get_sources] cannot allocate sources", 0);
  expect(&Faults::create_default_source, 2, "cannot create default source", 0);
  expect(&Faults::source_array_append, 2, "cannot append default source", 1);  // the plug-in cannot destroy a source
  EXPECT_EQ(SourceTags().size(), 2u);
}

}  // namespace
