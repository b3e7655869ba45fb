// The cloud-storage watch: asks the storage service for its quota and raises an alarm, once per excursion,
// when the free share falls under the configured threshold. Main thread only.
#ifndef Z55_AGENT_QUOTA_H
#define Z55_AGENT_QUOTA_H

// One check; does nothing unless "NIMB_ARMED" is 1. Goes past the job queue: at most 2 s to connect, 10 s in
// all.
void check_quota();

#endif
