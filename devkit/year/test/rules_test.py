"""Each rule of the oracle is silent where all is well, and speaks where a record says what must not be."""
import unittest

from records import KEYS, alarm, call, control, elements, end, event, evidence, judged, late, poll, request, start
from rules.alarms import AlarmsFollowReplies, EventsReachThePolls
from rules.device import UpgradesAreToldOf, ViewersWithoutFramesReboot
from rules.files import ConfigurationHoldsWhatWasWritten, RecordingLogMatches, RecordingsObey
from rules.flat import TheAgentStaysWhatItWas
from rules.handlers import HandlersAreExplained
from rules.polls import PollsKeepTheirPeriod, RequestsDoNotOverlap

LOW, HIGH = {"Battery": "5"}, {"Battery": "90"}


def polls(times=range(20, 3600, 20), battery=3):
    """Polls that are well: every third asks for the battery, too."""
    return [poll(t, HIGH if number % battery == 0 else None) for number, t in enumerate(times)]


class Rules(unittest.TestCase):
    def well(self, rule, *hours, **conf):
        self.assertEqual(judged(rule, hours, **conf), [])

    def broken(self, rule, text, *hours, **conf):
        found = judged(rule, hours, **conf)
        self.assertTrue(any(text in one for one in found), f"{text!r} is not in {found}")


class Polls(Rules):
    def test_at_their_period(self):
        self.well(PollsKeepTheirPeriod, [start(0)] + polls())

    def test_missing(self):
        self.broken(PollsKeepTheirPeriod, "no poll from 500.0 to 600.0", [start(0)] + [row for row in polls() if not 500 < row["t"] < 600])

    def test_late_on_a_busy_machine(self):
        gap = [start(0)] + [row for row in polls() if not 500 < row["t"] < 600]
        self.well(PollsKeepTheirPeriod, gap + [late(525 + i, 0.9) for i in range(50)])
        self.broken(PollsKeepTheirPeriod, "no poll from 500.0 to 600.0", gap + [late(525 + i, 0.1) for i in range(50)])
        self.broken(PollsKeepTheirPeriod, "no poll from 500.0 to 600.0", gap + [late(610, 9)])

    def test_one_lost_on_a_busy_machine(self):
        lost = [start(0)] + [row for row in polls() if row["t"] not in (520, 540)]
        self.broken(PollsKeepTheirPeriod, "no poll from 500.0 to 560.0", lost + [late(521, 0.9)])
        self.well(PollsKeepTheirPeriod, lost + [late(521, 2)])

    def test_none_at_the_end(self):
        self.broken(PollsKeepTheirPeriod, "no poll from 3000.0", [start(0)] + polls(range(20, 3001, 20)))

    def test_too_early(self):
        self.broken(PollsKeepTheirPeriod, "a poll only", [start(0)] + polls(range(20, 3600, 10), 6))

    def test_a_key_that_is_due_is_not_asked_for(self):
        self.broken(PollsKeepTheirPeriod, "Battery is not asked for", [start(0)] + polls(battery=9))

    def test_a_key_that_is_not_due_is_asked_for(self):
        self.broken(PollsKeepTheirPeriod, "Battery is asked for 40 s", [start(0)] + polls(battery=2))

    def test_a_key_that_is_always_asked_for_is_missing(self):
        wrong = request(3580, "CameraStatus?Notification&MotionEvent", "")
        self.broken(PollsKeepTheirPeriod, "the poll asks for", [start(0)] + polls(range(20, 3580, 20)) + [wrong])

    def test_late_after_an_outage(self):
        gone = event(1000, "outage", kind="refused", **{"for": 500})
        late = [row for row in polls() if not 1000 < row["t"] < 1700]
        self.broken(PollsKeepTheirPeriod, "no poll from 1000.0", [start(0), gone, end(1500, gone)] + late)

    def test_back_after_an_outage(self):
        gone = event(1000, "outage", kind="refused", **{"for": 500})
        back = [row for row in polls() if not 1000 < row["t"] < 1560]
        self.well(PollsKeepTheirPeriod, [start(0), gone, end(1500, gone)] + back)

    def test_overlapping_requests(self):
        slow = request(1000, "CameraSetting?MOTION_DETECTION", end=1005)
        self.broken(RequestsDoNotOverlap, "while", [slow, poll(1001)])
        self.well(RequestsDoNotOverlap, [slow, request(1001, "CameraLogin?Device=Camera")])
        self.well(RequestsDoNotOverlap, [slow, poll(1006)])


class Alarms(Rules):
    def test_motion(self):
        moved = poll(100, {"MotionEvent": "1"})
        self.well(AlarmsFollowReplies, [moved, alarm(100.1, 1), poll(120)])
        self.broken(AlarmsFollowReplies, "alarm 1 was due", [moved, poll(120)])
        self.broken(AlarmsFollowReplies, "alarm 1 that nothing", [moved, alarm(100.1, 1), alarm(100.2, 1), poll(120)])
        self.broken(AlarmsFollowReplies, "alarm 3 that nothing", [moved, alarm(100.1, 1), alarm(100.2, 3), poll(120)])
        self.broken(AlarmsFollowReplies, "so late", [moved, alarm(115, 1), poll(120)])

    def test_a_level_is_told_of_once(self):
        self.well(AlarmsFollowReplies, [poll(100, LOW), alarm(100.1, 13), poll(160, LOW), poll(220, HIGH), poll(280, LOW), alarm(280.1, 13)])
        self.broken(AlarmsFollowReplies, "alarm 13 that nothing", [poll(100, LOW), alarm(100.1, 13), poll(160, LOW), alarm(160.1, 13)])
        self.broken(AlarmsFollowReplies, "alarm 13 was due", [poll(100, LOW), alarm(100.1, 13), poll(160, HIGH), poll(220, LOW), poll(280)])

    def test_a_latch_outlives_a_login_and_not_the_process(self):
        expired = request(120, "CameraStatus?Notification&" + "&".join(KEYS), elements({"ErrorCode": "-2"}))
        before = [poll(100, LOW), alarm(100.1, 13), expired, request(121, "CameraLogin?Device=Camera")]
        self.broken(AlarmsFollowReplies, "alarm 13 that nothing", before + [poll(140, LOW), alarm(140.1, 13)])
        self.well(AlarmsFollowReplies, before + [start(1000), poll(1100, LOW), alarm(1100.1, 13)])

    def test_a_disarmed_alarm_is_not_due(self):
        disarm = call(50, "set_device_param", ["pd_armed", "0"], {"result": 0})
        self.well(AlarmsFollowReplies, [disarm, poll(100, LOW), poll(120)])
        self.broken(AlarmsFollowReplies, "alarm 13 that nothing", [disarm, poll(100, LOW), alarm(100.1, 13)])

    def test_a_threshold_counts_as_it_was_written(self):
        lower = call(50, "set_device_param", ["pd_setting", "5"], {"result": 0})
        self.broken(AlarmsFollowReplies, "alarm 13 that nothing", [lower, poll(100, LOW), alarm(100.1, 13)])

    def test_a_reply_that_did_not_arrive_calls_for_nothing(self):
        lost = poll(100, {"MotionEvent": "1"}, fault="reset", status=None)
        self.well(AlarmsFollowReplies, [lost, poll(120)])
        self.broken(AlarmsFollowReplies, "alarm 1 that nothing", [lost, alarm(100.1, 1), poll(120)])

    def test_temperature(self):
        asked = [poll(100, {"TemperatureEvent": "1"}), request(100.1, "CameraStatus?Temperature&TemperatureMax&TemperatureMin",
                 elements({"Temperature": "45", "TemperatureMax": "38", "TemperatureMin": "5"}))]
        self.well(AlarmsFollowReplies, asked + [alarm(100.2, 10), poll(120)])
        self.broken(AlarmsFollowReplies, "alarm 10 was due", asked + [poll(120)])
        self.broken(AlarmsFollowReplies, "alarm 14 that nothing", asked + [alarm(100.2, 14), poll(120)])

    def test_no_card(self):
        self.well(AlarmsFollowReplies, [poll(100, {"SD": "0"}), alarm(100.1, 15), poll(700, {"SD": "0"}), poll(720)])
        self.broken(AlarmsFollowReplies, "alarm 15 was due", [poll(100, {"SD": "0"}), poll(120)])

    def test_a_full_card(self):
        full = event(100, "card_full", **{"for": 5000})
        self.broken(AlarmsFollowReplies, "alarm 11 was due", [full, poll(600, {"Space": "1"}), poll(620)])
        self.well(AlarmsFollowReplies, [full, poll(600, {"Space": "1"}), alarm(600.1, 11), poll(620)])

    def test_what_happens_is_polled(self):
        moved = event(100, "pulse", name="MotionEvent")
        self.well(EventsReachThePolls, [moved, poll(120, {"MotionEvent": "1"})])
        self.broken(EventsReachThePolls, "MotionEvent of 100.0", [moved, poll(120)])

    def test_what_happens_while_a_poll_hangs_may_be_in_its_reply(self):
        moved = event(100, "pulse", name="MotionEvent")
        hanging = poll(90, {"MotionEvent": "1"}, end=300, fault="hang")
        self.well(EventsReachThePolls, [hanging, moved, poll(320)])
        self.broken(EventsReachThePolls, "MotionEvent of 100.0", [{**hanging, "end": 95}, moved, poll(320)])


class Handlers(Rules):
    def test_a_value_that_is_read(self):
        asked = request(100.05, "CameraStatus?Battery", elements({"Battery": "90"}))
        self.well(HandlersAreExplained, [asked, call(100, "get_device_status", ["Battery"], {"result": 2, "value": "90"})])
        self.broken(HandlersAreExplained, "Battery", [asked, call(100, "get_device_status", ["Battery"], {"result": 2, "value": "91"})])
        self.broken(HandlersAreExplained, "Battery", [asked, call(100, "get_device_status", ["Battery"], {"result": 5, "value": "ERROR"})])

    def test_a_failed_read(self):
        asked = request(100.05, "CameraSetting?MOTION_DETECTION", "", status=500, fault="http_status")
        self.well(HandlersAreExplained, [asked, call(100, "get_device_param", ["md_armed"], {"result": 5, "value": "ERROR"})])
        self.broken(HandlersAreExplained, "md_armed", [asked, call(100, "get_device_param", ["md_armed"], {"result": 1, "value": "1"})])

    def test_a_read_that_was_given_up_on_a_busy_machine(self):
        given_up = call(100, "get_device_status", ["Battery"], {"result": 5, "value": "ERROR"}, 4)
        self.broken(HandlersAreExplained, "Battery", [given_up, late(103, 0.9)])
        self.well(HandlersAreExplained, [given_up, late(103, 2)])

    def test_stored_values(self):
        written = call(50, "set_device_param", ["pd_setting", "15"], {"result": 0})
        self.well(HandlersAreExplained, [written, call(100, "get_device_param", ["pd_setting"], {"result": 2, "value": "15"})])
        self.broken(HandlersAreExplained, "pd_setting", [written, call(100, "get_device_param", ["pd_setting"], {"result": 2, "value": "20"})])

    def test_a_write_into_another_group(self):
        asked = request(100.02, "CameraSetting?MOTION_DETECTION", elements({"ENABLE": "ON", "SENSITIVITY": "4"}))
        written = call(100, "set_device_param", ["md_armed", "1"], {"result": 0})
        right, wrong = (request(100.05, "CameraSetup", body=f"<CameraSetup><{group}>") for group in ("MOTION_DETECTION", "AUDIO_DETECTION"))
        self.well(HandlersAreExplained, [asked, right, written])
        self.broken(HandlersAreExplained, "md_armed", [asked, wrong, written])

    def test_a_write_into_a_group_that_the_camera_does_not_tell(self):
        asked = request(100.02, "CameraSetting?TEMPERATURE_ALERT", elements({"ErrorCode": "-2"}))
        self.well(HandlersAreExplained, [asked, call(100, "set_device_param", ["td_down", "5"], {"result": 5})])
        self.broken(HandlersAreExplained, "td_down", [asked, call(100, "set_device_param", ["td_down", "5"], {"result": 0})])

    def test_recordings(self):
        begun = control(100.1, "VIDEO_START")
        self.well(HandlersAreExplained, [begun, call(100, "start_recording_video", [0], {"result": 0}, 2)])
        self.well(HandlersAreExplained, [call(100, "start_recording_video", [0], {"result": -10})])
        self.broken(HandlersAreExplained, "start_recording", [call(100, "start_recording_video", [0], {"result": 0})])
        self.broken(HandlersAreExplained, "start_recording", [begun, call(100, "start_recording_video", [0], {"result": -10}, 2)])
        self.broken(HandlersAreExplained, "stop_recording", [call(100, "stop_recording_video", [], {"result": 0})])

    def test_snapshots(self):
        photo, asked = request(104, "../DCIM/1.JPG", endpoint="photo"), request(100.1, "CameraStatus?Recording", elements({"Recording": "1"}))
        self.well(HandlersAreExplained, [photo, call(100, "get_camera_snapshot", [0], {"result": 0, "length": 9}, 5)])
        self.broken(HandlersAreExplained, "snapshot", [photo, call(100, "get_camera_snapshot", [0], {"result": -1}, 5)])
        self.broken(HandlersAreExplained, "snapshot", [asked, call(100, "get_camera_snapshot", [0], {"result": 0})])

    def test_talk_back(self):
        self.well(HandlersAreExplained, [call(100, "talk", [], {"frames": 3, "accepted": 3})])
        self.broken(HandlersAreExplained, "talk", [call(100, "talk", [], {"frames": 3, "accepted": 2})])

    def test_names_that_nobody_knows(self):
        self.broken(HandlersAreExplained, "nonsense", [call(100, "get_device_status", ["nonsense"], {"result": 0, "value": ""})])
        self.broken(HandlersAreExplained, "ptz", [call(100, "ptz_direction_control", [3, 0], {"result": -1})])


class Files(Rules):
    def conf(self, **changed):
        from records import CONF
        return evidence(conf="".join(f"{key}={value}\n" for key, value in {**CONF, **changed}.items()))

    def test_what_was_written_stands(self):
        written = [call(100, "set_device_param", ["pd_armed", "0"], {"result": 0})]
        self.well(ConfigurationHoldsWhatWasWritten, (written, self.conf(BATTERY_ARMED="0")))
        self.broken(ConfigurationHoldsWhatWasWritten, "BATTERY_ARMED is '1'", (written, self.conf()))
        self.broken(ConfigurationHoldsWhatWasWritten, "NIMB_LOW is '3'", ([], self.conf(NIMB_LOW="3")))

    def test_one_of_two_written_at_once_stands(self):
        at_once = [call(100, "set_device_param", ["pd_setting", value], {"result": 0}) for value in ("15", "25")]
        self.well(ConfigurationHoldsWhatWasWritten, (at_once, self.conf(BATTERY_LOW="15")))
        self.broken(ConfigurationHoldsWhatWasWritten, "BATTERY_LOW is '20'", (at_once, self.conf()))

    def test_no_entry_is_lost_and_none_comes(self):
        text = self.conf()["conf"]
        self.broken(ConfigurationHoldsWhatWasWritten, "the entries are", ([], evidence(conf=text[:text.rindex("NIMB_LOW")])))
        self.broken(ConfigurationHoldsWhatWasWritten, "the entries are", ([], evidence(conf=text + "MORE=1\n")))

    def test_the_log_has_a_line_to_a_recording(self):
        recording = [control(100, "VIDEO_START"), control(130, "VIDEO_STOP")]
        self.well(RecordingLogMatches, (recording, evidence(recordings=["20260101000000_30_AAAA0001.MP4"])))
        self.broken(RecordingLogMatches, "0 lines for 1", (recording, evidence()))
        self.broken(RecordingLogMatches, "2 lines for 1", (recording, evidence(recordings=["20260101000000_30_AAAA0001.MP4"] * 2)))
        self.broken(RecordingLogMatches, "tells of a recording of 30", (recording, evidence(recordings=["20260101000000_90_AAAA0001.MP4"])))
        self.broken(RecordingLogMatches, "a line of the log", (recording, evidence(recordings=["rubbish"])))

    def test_recordings_end_when_they_are_stopped(self):
        began = call(100, "start_recording_video", [0], {"result": 0}, 2)
        stopped = call(150, "stop_recording_video", [], {"result": 0}, 5)
        self.well(RecordingsObey, [began, control(100.1, "VIDEO_START"), control(137, "VIDEO_START"), stopped])
        self.broken(RecordingsObey, "started", [began, control(100.1, "VIDEO_START"), stopped, control(160, "VIDEO_START")])
        self.broken(RecordingsObey, "started", [control(100.1, "VIDEO_START")])

    def test_recordings_are_no_longer_than_ordered(self):
        began = call(100, "start_recording_video", [60], {"result": 0}, 2)
        self.broken(RecordingsObey, "started", [began, control(100.1, "VIDEO_START"), control(400, "VIDEO_START")])


class Device(Rules):
    def watched(self, stalls):
        seen = event(100, "viewer", **{"for": 300})
        return [start(0), seen] + ([{"kind": "stall", "t": 120, "t1": 120.1}] if stalls else []), end(400, seen)

    def test_a_viewer_without_frames_reboots(self):
        before, left = self.watched(stalls=True)
        self.well(ViewersWithoutFramesReboot, before + [start(135)])
        self.broken(ViewersWithoutFramesReboot, "was not rebooted", before + [left])

    def test_a_viewer_who_goes_with_the_agent_had_no_frames(self):
        before, left = self.watched(stalls=True)
        self.well(ViewersWithoutFramesReboot, before + [{**left, "t": 131, "gone": "refused"}, start(132)])

    def test_nothing_else_does(self):
        before, left = self.watched(stalls=False)
        self.well(ViewersWithoutFramesReboot, before + [left])
        self.broken(ViewersWithoutFramesReboot, "nothing had called for it", before + [start(135)])
        self.broken(ViewersWithoutFramesReboot, "nothing had called for it", [start(0), start(2000)])
        self.well(ViewersWithoutFramesReboot, [start(0), event(1990, "power_cut"), start(2000)])

    def upgrade(self, outcome):
        return [start(0), event(300, "upgrade", outcome=outcome), control(301, "UPGRADE_FW")]

    def test_an_upgrade_that_takes(self):
        self.well(UpgradesAreToldOf, self.upgrade("success") + [alarm(340, 18), start(360), alarm(362, 19)])
        self.broken(UpgradesAreToldOf, "20 was told", self.upgrade("success") + [alarm(340, 18), start(360), alarm(362, 20)])
        self.broken(UpgradesAreToldOf, "19 was not told", self.upgrade("success") + [alarm(340, 18), start(360)])
        self.broken(UpgradesAreToldOf, "18 was not told", self.upgrade("success") + [start(360), alarm(362, 19)])
        self.broken(UpgradesAreToldOf, "19 was told", self.upgrade("success") + [alarm(340, 18), start(360), alarm(362, 19), alarm(363, 19)])

    def test_upgrades_that_fail(self):
        self.well(UpgradesAreToldOf, self.upgrade("fail_upgrade") + [alarm(340, 18), start(360), alarm(362, 20)])
        self.well(UpgradesAreToldOf, self.upgrade("fail_download") + [alarm(340, 17)])
        self.broken(UpgradesAreToldOf, "17 was not told", self.upgrade("fail_download"))
        self.broken(UpgradesAreToldOf, "18 was told", [start(0), alarm(340, 18)])


class Flat(Rules):
    def hours(self, what, values):
        size = evidence()["size"]
        return [([], evidence(size={**size, what: value})) for value in values]

    def test_what_grows(self):
        for what, grown in (("heap", 50000), ("rss_kib", 20000), ("threads", 6), ("descriptors", 9)):
            flat = evidence()["size"][what]
            self.broken(TheAgentStaysWhatItWas, f"{what} grew", *self.hours(what, [flat] * 10 + [grown] * 10))
            self.well(TheAgentStaysWhatItWas, *self.hours(what, [flat, grown] * 12))

    def test_what_waits_for_the_next_transfer_is_not_there_after_a_failed_one(self):
        self.well(TheAgentStaysWhatItWas, *self.hours("descriptors", [8, 8, 8, 6] + [8] * 12))
        self.well(TheAgentStaysWhatItWas, *self.hours("heap", [304816, 304816, 304816, 290096] + [304816] * 12))

    def test_files(self):
        self.well(TheAgentStaysWhatItWas, *self.hours("files", [["total", "working/cookie"]]))
        self.broken(TheAgentStaysWhatItWas, "nobody knows", *self.hours("files", [["left"]]))
        self.broken(TheAgentStaysWhatItWas, "bytes of files", *self.hours("file_bytes", [10**6]))


if __name__ == "__main__":
    unittest.main()
