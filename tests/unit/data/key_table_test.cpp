#include "data/PRBKeyTable.h"
#include "data/PRBSample.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <map>

namespace {

struct Range {
    int first, last;
};

// The keys of each type as ranges; a key in no range is unknown.
const std::map<int, std::vector<Range>> kTypes = {
    {0, {{2, 2},       {4, 4},       {17, 17},     {20, 21},     {52, 77},     {79, 92},
         {200, 200},   {264, 265},   {268, 269},   {272, 272},   {314, 314},   {354, 355},
         {357, 358},   {360, 360},   {401, 401},   {404, 410},   {700, 700},   {750, 750},
         {770, 770},   {773, 773},   {775, 776},   {812, 813},   {833, 833},   {836, 836},
         {839, 841},   {875, 886},   {920, 933},   {953, 960},   {967, 970},   {974, 990},
         {1007, 1016}, {1022, 1035}, {1053, 1056}, {1076, 1078}, {1091, 1096}, {1109, 1111},
         {1125, 1133}, {1138, 1142}, {1158, 1161}}},
    {1, {{5, 11},      {267, 267},   {270, 271},   {301, 303},   {320, 320},   {330, 330},
         {361, 361},   {701, 702},   {771, 772},   {774, 774},   {777, 777},   {781, 782},
         {830, 832},   {837, 838},   {850, 851},   {861, 874},   {887, 919},   {946, 952},
         {961, 966},   {971, 973},   {1045, 1052}, {1063, 1065}, {1072, 1075}, {1085, 1090},
         {1099, 1101}, {1120, 1124}, {1135, 1137}, {1156, 1157}}},
    {2, {{78, 78},   {121, 127}, {129, 131}, {152, 153}, {157, 164}, {168, 179},  {201, 208},
         {220, 220}, {240, 243}, {250, 251}, {260, 261}, {266, 266}, {316, 316},  {352, 352},
         {370, 372}, {382, 388}, {934, 937}, {991, 992}, {995, 996}, {1001, 1002}}},
    {3, {{304, 310},   {315, 315},   {340, 342},   {353, 353},   {400, 400},   {403, 403},
         {703, 704},   {732, 739},   {753, 754},   {762, 762},   {783, 789},   {852, 859},
         {1017, 1020}, {1036, 1041}, {1057, 1061}, {1066, 1070}, {1079, 1083}, {1097, 1098},
         {1102, 1107}, {1112, 1115}, {1143, 1150}}},
    {4,
     {{311, 313},
      {321, 322},
      {350, 350},
      {356, 356},
      {705, 731},
      {755, 761},
      {1116, 1117},
      {1151, 1153}}},
    {5,
     {{120, 120},
      {133, 136},
      {212, 213},
      {246, 247},
      {263, 263},
      {375, 381},
      {938, 941},
      {997, 998},
      {1003, 1004}}},
    {6,
     {{128, 128},
      {132, 132},
      {150, 151},
      {154, 156},
      {165, 167},
      {180, 182},
      {209, 211},
      {244, 245},
      {248, 249},
      {262, 262},
      {373, 374},
      {942, 945},
      {993, 994},
      {999, 1000},
      {1005, 1006}}},
    {7,
     {{402, 402},
      {860, 860},
      {1021, 1021},
      {1042, 1043},
      {1062, 1062},
      {1071, 1071},
      {1084, 1084},
      {1108, 1108},
      {1118, 1118},
      {1134, 1134},
      {1154, 1154}}},
    {8, {{1044, 1044}, {1119, 1119}, {1155, 1155}}},
};

// Related keys by range of keys; 0 elsewhere.
const std::map<int, std::vector<Range>> kRelated = {
    {310, {{311, 311}, {321, 322}}},
    {315, {{312, 313}}},
    {314, {{350, 350}, {356, 356}, {1116, 1117}, {1151, 1153}}},
    {703, {{704, 704}, {732, 732}, {753, 753}}},
    {704, {{705, 731}}},
    {753, {{754, 754}}},
    {754, {{755, 761}}},
};

int find(const std::map<int, std::vector<Range>>& ranges, int key, int otherwise) {
    for (const auto& [value, list] : ranges)
        for (const Range& range : list)
            if (key >= range.first && key <= range.last) return value;
    return otherwise;
}

} // namespace

TEST(KeyTable, EveryKeyHasItsTypeAndRelatedKey) {
    for (int key = 0; key < kNumKeys; ++key) {
        const PRBKeyTableEntry* entry = PRBSample::getKeyTableEntry(key);
        const int type = find(kTypes, key, -1);
        ASSERT_EQ(entry != nullptr, type >= 0) << key;
        if (entry == nullptr) continue;
        EXPECT_EQ(static_cast<int>(entry->keyType), type) << key;
        EXPECT_EQ(static_cast<int>(entry->relatedKey), find(kRelated, key, 0)) << key;
        EXPECT_EQ(entry->scaleCode, 0u) << key;
    }
}

TEST(KeyTable, Has1220Entries) { EXPECT_EQ(PRBKeyTable.size(), 1220u); }

TEST(KeyTable, RowsPerTypeAreAsStated) {
    EXPECT_EQ(InitKeyTableSize, 598u);
    std::array<int, 9> count{};
    std::uint32_t last = 0;
    for (const PRBInitKeyRow& row : InitKeyTable) {
        ++count.at(row.keyType);
        EXPECT_GT(row.key, last);
        last = row.key;
    }
    EXPECT_EQ(count, (std::array{191, 128, 73, 87, 46, 25, 33, 12, 3}));
}

TEST(KeyTable, UnknownKeysAnswerNull) {
    for (int key : {-1, 0, 1, 3, 19, 22, 93, 1219, 1220, 5000, INT_MAX, INT_MIN})
        EXPECT_EQ(PRBSample::getKeyTableEntry(key), nullptr) << key;
}

TEST(KeyTable, RelatedKeysAreNumericKeys) {
    for (const PRBInitKeyRow& row : InitKeyTable) {
        if (row.relatedKey == 0) continue;
        const PRBKeyTableEntry* related =
            PRBSample::getKeyTableEntry(static_cast<int>(row.relatedKey));
        ASSERT_NE(related, nullptr) << row.key;
        EXPECT_NE(related->keyType, PRBKeyType::Text) << row.key;
    }
}

TEST(KeyTable, ScaleCodesArePowersOfTen) {
    constexpr int kMultipliers[] = {1, 10, 100, 1000};
    for (std::uint32_t code = 0; code < 4; ++code)
        EXPECT_EQ(prbScaleMultiplier(code), kMultipliers[code]);
    EXPECT_EQ(PRBSample::getScaleFactorMultiplier(2), 1);
    EXPECT_EQ(PRBSample::getScaleFactorMultiplier(1219), 1);
    EXPECT_EQ(PRBSample::getScaleFactorMultiplier(-5), 1);
}
