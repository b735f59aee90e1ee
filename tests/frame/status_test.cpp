// Status codes in words.
#include <zori.h>

#include <gtest/gtest.h>

#include <set>
#include <string>

TEST(StatusWords, EveryCodeHasANameAndASentenceOfItsOwn)
{
  EXPECT_STREQ(zori_status_name(ZorErrMaskSize), "ZorErrMaskSize");
  EXPECT_STREQ(zori_status_name(ZorOk), "ZorOk");
  EXPECT_STREQ(zori_status_text(ZorErrNullPtr), "A required pointer is null");
  const std::string unknown = zori_status_name(12345);
  std::set<std::string> names, texts;
  int codes = 0;
  for (int status = -10000; status < 100; ++status)
    if (zori_status_name(status) != unknown) {
      ++codes;
      names.insert(zori_status_name(status));
      texts.insert(zori_status_text(status));
    }
  EXPECT_GT(codes, 50);
  EXPECT_EQ(names.size(), codes);
  EXPECT_EQ(texts.size(), codes);
}
