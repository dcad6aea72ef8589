# SPDX-License-Identifier: Apache-2.0
bbp_add_gtest(unit sim_chip SOURCES sim_ChipModelTest.cpp LIBS bbp_sim)
