// SPDX-License-Identifier: Apache-2.0
#include <syslog.h>
#include <time.h>

#include <climits>

#include "tests/unit/platform/LinuxFixture.h"

TEST_F(LinuxDelay, SleepsForTheMillisecondsAndReturnsZero) {
    EXPECT_EQ(delay(350), 0u);
    EXPECT_EQ(system_.calls, Calls{"nanosleep"});
    EXPECT_EQ(system_.slept.tv_sec, 0);
    EXPECT_EQ(system_.slept.tv_nsec, 350000000);
}

TEST_F(LinuxDelay, SleepsForWholeSecondsAndTheRest) {
    EXPECT_EQ(delay(3000), 0u);
    EXPECT_EQ(system_.slept.tv_sec, 3);
    EXPECT_EQ(system_.slept.tv_nsec, 0);

    EXPECT_EQ(delay(1999), 0u);
    EXPECT_EQ(system_.slept.tv_sec, 1);
    EXPECT_EQ(system_.slept.tv_nsec, 999000000);
}

TEST_F(LinuxDelay, TakesTheShortestAndTheLongestTime) {
    EXPECT_EQ(delay(0), 0u);
    EXPECT_EQ(system_.slept.tv_sec, 0);
    EXPECT_EQ(system_.slept.tv_nsec, 0);

    EXPECT_EQ(delay(UINT_MAX), 0u);
    EXPECT_EQ(system_.slept.tv_sec, 4294967);
    EXPECT_EQ(system_.slept.tv_nsec, 295000000);
}

TEST_F(LinuxDelay, ReturnsTheMillisecondsLeftWhenASignalCutsItShort) {
    system_.error = EINTR;
    system_.left = {2, 345000000};
    EXPECT_EQ(delay(3000), 2345u);
    EXPECT_EQ(system_.calls, Calls{"nanosleep"});
}

TEST_F(LinuxDelay, RoundsWhatIsLeftUpSoThatACutSleepIsNeverAFullOne) {
    system_.error = EINTR;
    system_.left = {0, 1};
    EXPECT_EQ(delay(200), 1u);
    system_.left = {0, 1000000};
    EXPECT_EQ(delay(200), 1u);
    system_.left = {0, 1000001};
    EXPECT_EQ(delay(200), 2u);
    system_.left = {1, 999000001};
    EXPECT_EQ(delay(3000), 2000u);
}

TEST_F(LinuxDelay, ReturnsTheWholeTimeWhenItCannotSleepAtAll) {
    system_.error = EINVAL;
    EXPECT_EQ(delay(200), 200u);
}

TEST_F(LinuxSlogf, LogsAPlainMessageAsANoticeAndNeverAsAnEmergency) {
    slogf(11001, 0, "text");
    EXPECT_EQ(system_.severity, LOG_NOTICE);
}

TEST_F(LinuxSlogf, LogsACriticalMessageAsCritical) {
    slogf(11001, 1, "text");
    EXPECT_EQ(system_.severity, LOG_CRIT);
}

TEST_F(LinuxSlogf, LogsAnErrorAsAnError) {
    slogf(11001, 2, "text");
    EXPECT_EQ(system_.severity, LOG_ERR);
}

TEST_F(LinuxSlogf, LogsAWarningAsAWarning) {
    slogf(11001, 3, "text");
    EXPECT_EQ(system_.severity, LOG_WARNING);
}

TEST_F(LinuxSlogf, LogsInformationAsInformation) {
    slogf(11001, 5, "text");
    EXPECT_EQ(system_.severity, LOG_INFO);
}

TEST_F(LinuxSlogf, LogsAnyOtherSeverityAsANotice) {
    for (const int severity : {-1, 4, 6, 7, INT_MAX, INT_MIN}) {
        slogf(11001, severity, "text");
        EXPECT_EQ(system_.severity, LOG_NOTICE) << severity;
    }
}

TEST_F(LinuxSlogf, SpeaksAsBbpflash) {
    slogf(11001, 0, "text");
    EXPECT_EQ(system_.identity, "bbpflash");
    EXPECT_EQ(system_.log_options, 0);
    EXPECT_EQ(system_.facility, LOG_USER);
}

TEST_F(LinuxSlogf, FormatsItsTextOnce) {
    EXPECT_EQ(slogf(11001, 2, "%s of %d", "100%n%s", 7), 0);
    EXPECT_EQ(system_.calls, Calls{"vsyslog"});
    EXPECT_EQ(system_.logged, "100%n%s of 7");
}
