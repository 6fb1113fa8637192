// The drivers' critical sections between processes: named semaphores.
#pragma once

namespace ddal::dsp {

inline constexpr const char *kCppiSection = "/OSAL-sem_cppi_cs";
inline constexpr const char *kQmssSection = "/OSAL-sem_qmss_cs";
inline constexpr const char *kSaSection = "/OSAL-sem_sa_cs";
inline constexpr const char *kSections[] = {kCppiSection, kQmssSection, kSaSection};

} // namespace ddal::dsp
