#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "file_bytes.h"
#include "vrncal/cfg_file.h"

namespace {

// Each test gets its own temporary directory.
class CfgFileTest : public vrncal_test::TempDirTest {
protected:
    std::string write(const std::string& name, const std::string& text) {
        const std::string path = dir_ + "/" + name;
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
    std::string read(const std::string& name) {
        std::ifstream in(dir_ + "/" + name, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }
    std::string load(const std::string& text) {
        const std::string path = write("t.ini", text);
        EXPECT_EQ(cfg_.loadItems(path), 1);
        return path;
    }

    CCfgFile cfg_;
};

TEST_F(CfgFileTest, ParsingKeepsTheFieldQuirks) {
    load("orphan=1\n"
         "[Sec]x\n"
         " ;x=1\n"
         ";c=2\n"
         "a = 1\n"
         "k=v=w\n"
         "=v\n"
         "flag\n"
         "k=second\n"
         "\n"
         "[Sec\n"
         "[ A ]\r\n"
         "v=1\r\n"
         "[\n"
         "e=1 ;not a comment");
    ASSERT_EQ(cfg_.sections.size(), 4u);
    const tagDataSect* sec = cfg_.sections.at("Sec]");
    EXPECT_EQ(sec->index, 0);
    EXPECT_EQ(sec->name, "Sec]");
    ASSERT_EQ(sec->items.size(), 5u);
    EXPECT_EQ(sec->items.at(" ;x")->value, "1");
    EXPECT_EQ(sec->items.at("a ")->value, " 1");
    EXPECT_EQ(sec->items.at("k")->value, "v=w");  // first of two wins
    EXPECT_EQ(sec->items.at("k")->index, 3);
    EXPECT_EQ(sec->items.at("")->value, "v");
    EXPECT_EQ(sec->items.at("flag")->value, "flag");
    EXPECT_EQ(sec->items.at("flag")->index, 5);
    // The discarded repeat of k still took ordinal 6.
    EXPECT_EQ(cfg_.sections.at("Se")->index, 7);
    EXPECT_TRUE(cfg_.sections.at("Se")->items.empty());
    EXPECT_EQ(cfg_.sections.at(" A ")->items.at("v")->value, "1\r");
    EXPECT_EQ(cfg_.sections.at("")->index, 10);
    EXPECT_EQ(cfg_.sections.at("")->items.at("e")->value, "1 ;not a comment");
    EXPECT_EQ(cfg_.sections.at("")->items.at("e")->index, 11);
}

TEST_F(CfgFileTest, RepeatedHeaderDiscardsTheEarlierSection) {
    load("[S]\na=1\n[T]\nt=1\n[S]\nb=2\n");
    EXPECT_EQ(cfg_.GetString("S", "a", "none"), "none");
    EXPECT_EQ(cfg_.GetInt("S", "b", 0), 2);
    EXPECT_EQ(cfg_.GetInt("T", "t", 0), 1);
    EXPECT_EQ(cfg_.sections.at("S")->index, 4);
}

TEST_F(CfgFileTest, LoadStartsFromEmptyAndToleratesMissingFiles) {
    load("[A]\nx=1\n");
    EXPECT_EQ(cfg_.loadItems(dir_ + "/missing.ini"), 1);
    EXPECT_TRUE(cfg_.sections.empty());
    EXPECT_EQ(cfg_.GetInt("A", "x", -7), -7);
}

TEST_F(CfgFileTest, TypedLookupsConvertOnEachRead) {
    load("[N]\r\n"
         "i=12.7\r\n"
         "hex=0x10\n"
         "sp=  42abc\n"
         "f=2.5abc\n"
         "tenth=0.1\n"
         "tie=1.00000005960464478\n"
         "neg=-3.7\r\n");
    EXPECT_EQ(cfg_.GetInt("N", "i", 0), 12);
    EXPECT_EQ(cfg_.GetInt("N", "hex", 5), 0);
    EXPECT_EQ(cfg_.GetInt("N", "sp", 0), 42);
    EXPECT_EQ(cfg_.GetFloat("N", "f", 0.0f), 0x1.4p+1f);
    EXPECT_EQ(cfg_.GetFloat("N", "neg", 0.0f), -0x1.d9999ap+1f);
    EXPECT_EQ(cfg_.GetString("N", "neg", ""), "-3.7\r");
    // Single precision even through GetDouble.
    EXPECT_EQ(cfg_.GetDouble("N", "tenth", 0.0), 0x1.99999ap-4);
    // Rounded once, straight to float (not via the nearest double).
    EXPECT_EQ(cfg_.GetFloat("N", "tie", 0.0f), 0x1.000002p+0f);
    // Absent names give the default and leave an empty entry behind.
    EXPECT_EQ(cfg_.GetFloat("None", "x", 0.25f), 0.25f);
    EXPECT_EQ(cfg_.GetDouble("N", "y", 1e300), 1e300);
    EXPECT_EQ(cfg_.sections.at("None"), nullptr);
    EXPECT_EQ(cfg_.sections.at("N")->items.at("y"), nullptr);
}

TEST_F(CfgFileTest, UnconvertibleValuesRaiseTheStandardErrors) {
    load("[E]\nword=abc\nbig=3000000000\nhuge=1e39\nempty=\n");
    auto what = [](auto read) -> std::string {
        try {
            read();
        } catch (const std::invalid_argument& e) {
            return std::string("invalid ") + e.what();
        } catch (const std::out_of_range& e) {
            return std::string("range ") + e.what();
        }
        return "none";
    };
    EXPECT_EQ(what([&] { cfg_.GetInt("E", "word", 1); }), "invalid stoi");
    EXPECT_EQ(what([&] { cfg_.GetInt("E", "empty", 1); }), "invalid stoi");
    EXPECT_EQ(what([&] { cfg_.GetInt("E", "big", 1); }), "range stoi");
    EXPECT_EQ(what([&] { cfg_.GetFloat("E", "word", 1.0f); }), "invalid stof");
    EXPECT_EQ(what([&] { cfg_.GetDouble("E", "word", 1.0); }), "invalid stof");
    EXPECT_EQ(what([&] { cfg_.GetDouble("E", "huge", 1.0); }), "range stof");
}

TEST_F(CfgFileTest, SettersRewriteTheWholeFileInMapOrder) {
    const std::string path = load("; comment\n[B]\r\nz=1\r\nk=x\r\n\n[A]\nv=0\n");
    cfg_.setFilename(path);
    cfg_.GetInt("Ghost", "x", 0);  // placeholder section, not written
    cfg_.GetInt("B", "ghost", 0);  // placeholder key, not written
    ::testing::internal::CaptureStdout();
    cfg_.SetInt("B", "n", -5);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "mymap contains:\n");
    EXPECT_EQ(read("t.ini"), "[A]\nv=0\n[B]\nk=x\r\nn=-5\nz=1\r\n");

    ::testing::internal::CaptureStdout();
    cfg_.SetFloat("A", "v", 1.0f);
    cfg_.SetDouble("C", "d", -0.000001);
    cfg_.SetDouble("C", "big", 1e20);
    cfg_.SetFloat("C", "f", 0.1f);
    cfg_.SetString("B", "z", "text");
    cfg_.SetInt("Ghost", "i", 2147483647);
    std::string traces;
    for (int i = 0; i < 6; ++i) traces += "mymap contains:\n";
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), traces);
    EXPECT_EQ(read("t.ini"),
              "[A]\nv=1.000000\n"
              "[B]\nk=x\r\nn=-5\nz=text\n"
              "[C]\nbig=100000000000000000000.000000\nd=-0.000001\nf=0.100000\n"
              "[Ghost]\ni=2147483647\n");
    const tagDataSect* made = cfg_.sections.at("C");
    EXPECT_EQ(made->index, -1);
    EXPECT_EQ(made->name, "");
    EXPECT_EQ(made->items.at("d")->index, -1);
    EXPECT_EQ(made->items.at("d")->key, "d");
}

TEST_F(CfgFileTest, SaveSkipsEmptyStoresAndPlaceholders) {
    const std::string path = write("keep.ini", "[K]\nk=1\n");
    CCfgFile empty;
    EXPECT_EQ(empty.saveItems(path), 1);
    EXPECT_EQ(read("keep.ini"), "[K]\nk=1\n");
    // After a failed lookup the store is no longer empty: the file is
    // rewritten with no lines.
    empty.GetString("K", "k", "");
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(empty.saveItems(path), 1);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "mymap contains:\n");
    EXPECT_EQ(read("keep.ini"), "");
    // No file name: the write goes nowhere.
    ::testing::internal::CaptureStdout();
    empty.SetInt("K", "k", 3);
    ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(empty.GetInt("K", "k", 0), 3);
    EXPECT_EQ(empty.saveItems(dir_ + "/no/such/dir.ini"), 1);
}

TEST_F(CfgFileTest, ListDataPrintsEverySection) {
    load("[S2]\nb=2\r\na=1\n[S1]\n");
    cfg_.GetInt("S0", "x", 0);
    cfg_.GetInt("S2", "c", 0);
    ::testing::internal::CaptureStdout();
    cfg_.listData();
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "mymap contains:\nS1=>\nS2=>\n\t=>a := 1\n\t=>b := 2\r\n");
}

}  // namespace
