// Tests of the module `rubruf`: its way to the host's logger, its figures, and its end with the provider's life.

#include <nlohmann/json.hpp>

#include "tests/provider_test_base.h"
#include "utils/python_env/python_env.h"

namespace {

using nlohmann::json;

class RubrufModuleTest : public ProviderTest {
 protected:
  json Data(uint32_t index = 0) { return json::parse(Json(index)); }
};

TEST_F(RubrufModuleTest, LogsToTheHost) {
  Start({Script("s.py", "exec(args['do']); return {}", "import logging, rubruf")},
        {{"python-import-arg-do",
          "rubruf.log(rubruf.DEBUG, 'one\\n\\ntwo\\n'); rubruf.log(3, ''); rubruf.log(4, 'a\\0b\\ud800\\u00e4')\n"
          "log = logging.getLogger('x'); log.addHandler(rubruf.LogHandler()); log.setLevel(1)\n"
          "log.critical('c'); log.warning('%d %%', 5); log.info('i'); log.debug('d')\n"
          "for bad in [(20, 't'), (3, b't'), (3,)]:\n"
          "    try: rubruf.log(*bad)\n"
          "    except (ValueError, TypeError) as error: rubruf.log(3, type(error).__name__)\n"}});
  Collect();
  EXPECT_EQ(Told(), "7one|7|7two|3|4a b\\ud800ä|3c|45 %|6i|7d|3ValueError|3TypeError|3TypeError");
}

TEST_F(RubrufModuleTest, CountsWhatScriptsDo) {
  Start(
      {Script("monitor.py", "return rubruf.stats()", "import rubruf"),
       Script(
           "worker.py", "return next(results)",
           "import time\ndef slow(): time.sleep(0.05); yield {'a': None, 'b': [1, None]}; yield []; yield 5; yield []\n"
           "results = slow()"),
       Script("stuck.py", "return None")},
      {{"python-import-2-tolerant", "1"}, {"python-import-2-tag", "\xff"}});
  buffer_.refuse = [offered = 0](const auto&) mutable { return ++offered == 3; };
  for (int i = 0; i < 5; ++i) Collect(1);
  json figures = Data();
  ASSERT_EQ(figures.size(), 3U);
  json worker = figures[1];
  EXPECT_GE(worker["seconds_longest"], 0.05);
  EXPECT_LT(worker["seconds_last"], 0.05);
  EXPECT_GE(worker["seconds_all"], worker["seconds_longest"]);
  for (const char* measured : {"seconds_last", "seconds_longest", "seconds_all"}) worker.erase(measured);
  EXPECT_EQ(worker, json({{"tag", "dict_\uFFFD"},
                          {"path", dir_ / "worker.py"},
                          {"collections_begun", 5},
                          {"collections_completed", 3},
                          {"collections_failed", 2},
                          {"values_left_out", 2},
                          {"tokens_written", 7},
                          {"tokens_refused", 1}}));
  EXPECT_EQ(figures[0]["collections_completed"], 0) << "the first one is under way";
  EXPECT_EQ(figures[2]["collections_begun"], 0);
  EXPECT_EQ(Progress(2), TEV_PROGRESS_ERROR);
  EXPECT_EQ(Progress(2), TEV_PROGRESS_ERROR);
}

// In an interpreter that outlives the provider, as a host's own does, scripts keep the module from life to life.
TEST_F(RubrufModuleTest, ServesOneLifeAfterTheOther) {
  RUBRUF_IMPORT(tev_python_environment_init);
  RUBRUF_IMPORT(tev_python_environment_finalize);
  ASSERT_EQ(tev_python_environment_init(), 0);
  ASSERT_TRUE(
      Python("import sys; finders = list(sys.meta_path)\n"
             "def absent():\n  try: import rubruf\n  except ModuleNotFoundError: return True\n"
             "assert absent()"));
  for (int life = 0; life < 3; ++life) {
    Start({Script("s.py", "rubruf.log(3, 'in a life'); return rubruf.stats()", "import rubruf")});
    EXPECT_EQ(Data().size(), 1U);
    EXPECT_EQ(Told(), "3in a life");
    Finalize();
    EXPECT_TRUE(
        Python("import s; s.rubruf.log(3, 'between'); assert s.rubruf.stats() == [] and absent()\n"
               "assert sys.meta_path == finders and 'rubruf' not in sys.modules"));
    EXPECT_EQ(Told(), "");
  }
  EXPECT_EQ(tev_python_environment_finalize(), 0);
}

TEST_F(RubrufModuleTest, GivesWayToAScriptOfItsName) {
  Start({Script("rubruf.py", "return ['mine']")});
  EXPECT_EQ(FirstText(), "mine");
}

// A destructor may ask for figures while the scripts are being released; and a script may remove the finder.
TEST_F(RubrufModuleTest, CanBeAskedUntilTheEnd) {
  Start({Script("a.py", "return [1]", R"(
import rubruf, sys
class Asking:
    def __call__(self, args): return [1]
    def __del__(self): rubruf.log(4, 'asked: %d' % len(rubruf.stats()))
asking = collect_too = Asking()
sys.meta_path = [finder for finder in sys.meta_path if 'rubruf' not in str(finder)]
)"),
         Script("b.py", "return [1]")},
        {{"python-import-1-function", "asking"}});
  EXPECT_TRUE(Collect().complete());
  Finalize();
  EXPECT_EQ(Told(), "4asked: 0");
}

}  // namespace
