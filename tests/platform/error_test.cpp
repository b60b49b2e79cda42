// Error numbers: their translation from and to errno values, and their texts.
#include "platform/error.h"

#include <cerrno>
#include <set>

#include "kit/system.h"

using namespace KestSupport::platform;

TEST(ErrorNumber, IsTranslatedBothWays) {
    const std::pair<ErrorCode, int> rows[] = {
        {0, 0},         {2, ENOENT},         {4, EMFILE},     {5, EACCES},      {6, EBADF},
        {8, ENOMEM},    {17, EXDEV},         {80, EEXIST},    {87, EINVAL},     {109, EPIPE},
        {112, ENOSPC},  {120, ENOSYS},       {122, ERANGE},   {145, ENOTEMPTY}, {170, EBUSY},
        {193, ENOEXEC}, {206, ENAMETOOLONG}, {234, EMSGSIZE}, {258, ETIMEDOUT}};
    for (const auto& [code, errnoValue] : rows) {
        EXPECT_EQ(errorFromErrno(errnoValue), code);
        EXPECT_EQ(errnoFromError(code), errnoValue);
        EXPECT_EQ(errorMessage(code), kit::systemText(code, errnoValue));
    }
    for (const int denied : {EPERM, EROFS, EISDIR})
        EXPECT_EQ(errorFromErrno(denied), errorAccessDenied);
    EXPECT_EQ(errnoFromError(errorOutOfMemory), ENOMEM);
    EXPECT_EQ(errnoFromError(errorAlreadyExists), EEXIST);
    EXPECT_EQ(errorFromErrno(EDOM), errorGeneralFailure);
}

TEST(ErrorNumber, HasTextUnlessUnknown) {
    std::set<std::string> texts{""};
    for (const ErrorCode code :
         {31u, 1003u, 1051u, 1052u, 1053u, 1056u, 1058u, 1060u, 1061u, 1062u, 1063u, 1068u, 1073u}) {
        EXPECT_EQ(errnoFromError(code), 0) << code;
        EXPECT_TRUE(texts.insert(errorMessage(code)).second) << code;
    }
    for (const ErrorCode code : {9999u, 0xFFFFFFFFu})
        EXPECT_EQ(errorMessage(code), "") << code;
}
