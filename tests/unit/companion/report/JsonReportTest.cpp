#include <gtest/gtest.h>

#include "companion/report/JsonReport.h"
#include "tests/unit/companion/report/SampleResults.h"

namespace companion::test {
namespace {

TEST(JsonReportTest, UpdateIsOneObject) {
  EXPECT_EQ(UpdateJson(WrittenWend()),
            R"({
  "command": "update",
  "target": "wend",
  "module": 1,
  "exit_code": 0,
  "verdict": "proven",
  "reason": "The flash holds the image, and it was taken into use.",
  "notes": [
    "tarnwick ended with 6"
  ],
  "milliseconds": 3456,
  "names": {
    "i2c_bus": "i2c-1",
    "spi_device": "spidev1.0"
  },
  "chip": {
    "id": "20ba18",
    "status": 0,
    "configuration": null,
    "lockable": false,
    "protected": false,
    "locked_whole": false
  },
  "done_before": "high",
  "done_after": "high",
  "endpoint": "none",
  "unfinished": false,
  "readings": [
    {
      "bytes": 1000,
      "milliseconds": 12,
      "problem": null,
      "console": "",
      "unsteady_address": null,
      "difference": {
        "address": 76,
        "expected": 1,
        "found": 2,
        "pages": 4
      },
      "blocks_read_again": 1,
      "looks_silent": false,
      "ps_mode": false,
      "done_before": "high",
      "done_after": "high",
      "endpoint": "none",
      "not_given_back": null
    },
    {
      "bytes": 1000,
      "milliseconds": 12,
      "problem": null,
      "console": "",
      "unsteady_address": null,
      "difference": null,
      "blocks_read_again": 0,
      "looks_silent": false,
      "ps_mode": false,
      "done_before": "high",
      "done_after": "high",
      "endpoint": "none",
      "not_given_back": null
    }
  ],
  "image": {
    "path": "new.bin",
    "file_bytes": 700,
    "file_sha256": "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa",
    "bytes": 1000,
    "sha256": "bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb",
    "stamp": "2024-05-06 07:08:09"
  },
  "holds": "image",
  "in_use": "taken",
  "proven_sha256": "bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb",
  "written": true,
  "attempts": 2,
  "stamp_before": "2023-01-02 03:04:05",
  "head_writes": 0,
  "causes": [
    "attempt 1: no answer"
  ],
  "runs": [
    {
      "attempt": 1,
      "exit_code": 6,
      "signal": null,
      "timed_out": false,
      "killed": false,
      "problem": null,
      "milliseconds": 5,
      "stdout": "Programming operation failed.\n",
      "stderr": ""
    },
    {
      "attempt": 2,
      "exit_code": 0,
      "signal": null,
      "timed_out": false,
      "killed": false,
      "problem": null,
      "milliseconds": 6,
      "stdout": "done)"
            "\xEF\xBF\xBD"
            R"(\n",
      "stderr": ""
    }
  ],
  "into_use": [
    {
      "milliseconds": 40,
      "problem": null,
      "console": "",
      "done_seen_low": true,
      "done": "high",
      "endpoint": "none",
      "not_given_back": null
    }
  ],
  "locked_whole": null,
  "signals": 0
}
)");
}

TEST(JsonReportTest, RefusedUpdateHasTheSameKeys) {
  UpdateResult result;
  result.target = "dax";
  result.slot = 2;
  result.verdict = "Refused: the file is missing.";
  EXPECT_EQ(UpdateJson(result), R"({
  "command": "update",
  "target": "dax",
  "module": 2,
  "exit_code": 2,
  "verdict": "refused",
  "reason": "Refused: the file is missing.",
  "notes": [],
  "milliseconds": 0,
  "names": {
    "i2c_bus": null,
    "spi_device": null
  },
  "chip": null,
  "done_before": "unknown",
  "done_after": "unknown",
  "endpoint": "unknown",
  "unfinished": false,
  "readings": [],
  "image": null,
  "holds": "not-read",
  "in_use": "no",
  "proven_sha256": null,
  "written": false,
  "attempts": 0,
  "stamp_before": null,
  "head_writes": 0,
  "causes": [],
  "runs": [],
  "into_use": [],
  "locked_whole": null,
  "signals": 0
}
)");
}

/// @return the lines of a JSON object from the line with this key on
std::string From(const std::string& json, const std::string& key) {
  return json.substr(json.find("  \"" + key + "\""));
}

TEST(JsonReportTest, SignalOfARunIsANumber) {
  UpdateResult result = WrittenWend();
  result.runs = {{.attempt = 1, .run = {.signal = 14, .timedOut = true}}};
  result.lockedWhole = true;
  EXPECT_NE(UpdateJson(result).find(
                "\"exit_code\": null,\n      \"signal\": 14,\n      \"timed_out\": true"),
            std::string::npos);
  EXPECT_NE(UpdateJson(result).find("\"locked_whole\": true"), std::string::npos);
}

TEST(JsonReportTest, VerifyTellsEqualOrNotOrNeither) {
  VerifyResult result;
  EXPECT_EQ(From(VerifyJson(result), "image"),
            "  \"image\": null,\n  \"equal\": null,\n  \"stamp_there\": null\n}\n");
  result.equal = false;
  result.stampThere = "\xFF";
  EXPECT_EQ(From(VerifyJson(result), "equal"),
            "  \"equal\": false,\n  \"stamp_there\": \"\xEF\xBF\xBD\"\n}\n");
}

TEST(JsonReportTest, ReadTellsHowMuchItHasRead) {
  ReadResult result;
  result.file = "f";
  EXPECT_EQ(From(ReadJson(result), "file"),
            "  \"file\": \"f\",\n  \"bytes\": null,\n  \"sha256\": null\n}\n");
  result.bytes = 5;
  result.sha256 = "ab";
  EXPECT_EQ(From(ReadJson(result), "file"),
            "  \"file\": \"f\",\n  \"bytes\": 5,\n  \"sha256\": \"ab\"\n}\n");
}

}  // namespace
}  // namespace companion::test
