// Tests of the sample scripts: the data that arrive have the documented keys and types, and plausible values.

#include <unistd.h>

#include <nlohmann/json.hpp>
#include <set>
#include <sstream>

#include "tests/provider_test_base.h"

using nlohmann::json;
using Fields = std::set<std::string>;

// Each source's keys with the types of their values; "?" marks a key that may be missing.
const json kShapes = {
    {"dict_load_memory", R"(load_1min:double load_5min:double load_15min:double tasks_running:long tasks_total:long
      uptime_seconds:double memory:dict_start total_bytes:long available_bytes:long? free_bytes:long buffers_bytes:long
      cached_bytes:long swap_total_bytes:long swap_free_bytes:long)"},
    {"dict_network", R"(name:string up:true? up:false? mtu:long? speed_mbps:long? rx_bytes:long rx_packets:long
      rx_errors:long rx_dropped:long tx_bytes:long tx_packets:long tx_errors:long tx_dropped:long)"},
    {"dict_disks", R"(devices:list_start? name:string? size_bytes:long? reads:long? writes:long? read_bytes:long?
      write_bytes:long? in_flight:long? file_systems:list_start? device:string? mount_point:string? type:string?
      total_bytes:long? free_bytes:long? available_bytes:long? inodes_total:long? inodes_free:long?)"},
    {"dict_processes", "pid:long name:string state:string threads:long rss_bytes:long"},
    {"dict_sensors", R"(temperatures:list_start? celsius:double? fans:list_start? rpm:long? device:string? chip:string?
      label:string?)"},
    {"dict_script_stats", R"(tag:string path:string collections_begun:long collections_completed:long
      collections_failed:long values_left_out:long tokens_written:long tokens_refused:long seconds_last:double
      seconds_longest:double seconds_all:double)"},
    {"dict_identity", R"(hostname:string kernel:string boot_time:long labels:dict_start site:string rack:long
      production:false roles:list_start)"}};

class ExamplesTest : public ProviderTest {
 protected:
  json Data(uint32_t index) { return json::parse(Json(index)); }
};

TEST_F(ExamplesTest, ArriveFromTheirDirectoryAsDocumented) {
  ASSERT_TRUE(Construct({{"python-import-config-dir", RUBRUF_EXAMPLES_DIR}}) && Initialize());
  const auto tags = SourceTags();
  for (uint32_t i = 0; i < tags.size(); ++i) {
    Fields arrived;
    Fields documented;
    const auto tokens = Collect(i).tokens;
    for (size_t t = 1; t < tokens.size(); ++t) {
      const standin::Token& key = tokens[t - 1];
      if (key.type == standin::kKeyName) arrived.insert(key.payload + ":" + standin::TypeName(tokens[t].type));
    }
    std::istringstream shape(kShapes.value(tags[i], "an unknown source"));
    for (std::string field; shape >> field;) {
      const std::string name = field.substr(0, field.find('?'));
      if (name == field || arrived.count(name) != 0) documented.insert(name);
    }
    EXPECT_EQ(arrived, documented) << tags[i];
    EXPECT_TRUE(tags[i] != "dict_load_memory" || Data(i)["memory"]["total_bytes"] > 0);
  }
  EXPECT_EQ(Fields(tags.begin(), tags.end()).size(), kShapes.size());
  EXPECT_EQ(Problems(), Messages());
}

TEST_F(ExamplesTest, ReportWhatTheirArgumentsSay) {
  std::filesystem::create_directories(dir_ / "hwmon0/temp2_input");  // cannot be read
  Write("hwmon0/temp1_input", "-42500\n");
  Write("hwmon0/fan1_input", "900\n");
  Write("hwmon0/fan1_label", "Front\n");
  Options arguments{{"interfaces", "none, lo"}, {"top", "1000000"},   {"3-root", dir_ / ""},
                    {"4-root", dir_ / "none"},  {"site", "lab"},      {"rack", "7"},
                    {"production", "true"},     {"roles", "web, ,db"}};
  for (auto& [key, value] : arguments) key.insert(0, "python-import-arg-");
  const std::string at = RUBRUF_EXAMPLES_DIR "/";
  Start({at + "network.py", at + "processes.py", at + "sensors.py", at + "sensors.py", at + "identity.py"}, arguments);
  EXPECT_EQ(Data(0).size(), 1);
  EXPECT_EQ(Data(0).at(0).at("name"), "lo");
  EXPECT_NE(Data(1).dump().find("\"pid\":" + std::to_string(getpid()) + ","), std::string::npos);
  EXPECT_EQ(Data(2), R"({"fans": [{"device": "hwmon0", "chip": "hwmon0", "label": "Front", "rpm": 900}],
      "temperatures": [{"device": "hwmon0", "chip": "hwmon0", "label": "temp1", "celsius": -42.5}]})"_json);
  EXPECT_EQ(Data(3), nullptr);
  EXPECT_EQ(Data(4).at("labels"), R"({"site": "lab", "rack": 7, "production": true, "roles": ["web", "db"]})"_json);
  std::string machine_id;  // has 32 digits if the machine has an ID
  std::ifstream("/etc/machine-id") >> machine_id;
  EXPECT_EQ(buffer_.last_write->app_id[6] >> 4,
            machine_id.size() == 32 ? 5 : 0);  // 5: the version number of a GUID made by hashing
}
