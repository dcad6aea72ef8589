# SPDX-License-Identifier: Apache-2.0
foreach(name IN ITEMS ChipModel Download Fault FaultEffect FaultText HeadUnit LogView
                     SampleImage)
    bbp_add_gtest(unit sim_${name} SOURCES sim_${name}Test.cpp LIBS bbp_sim)
endforeach()
if(BBP_WITH_HOST)
    bbp_add_gtest(unit sim_Digest SOURCES sim_DigestTest.cpp LIBS bbp_sim_digest)
    bbp_add_gtest(unit sim_Options SOURCES sim_OptionsTest.cpp LIBS bbp_sim_host)
    bbp_add_gtest(unit sim_host SOURCES sim_hostTest.cpp LIBS bbp_sim_host)
endif()
