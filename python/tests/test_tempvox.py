"""The Python binding against the built module. TEMPVOX_MODULE names the
module file; every test registers into its own scratch XDG_DATA_HOME."""

import math
import os
import struct
import subprocess
import sys
import wave

import pytest

import tempvox
from tempvox import Tempvox, TempvoxError
from tempvox._abi import DISP_E_EXCEPTION

MODULE = os.environ.get("TEMPVOX_MODULE", "")
SOURCE_DIR = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


@pytest.fixture
def data_home(tmp_path, monkeypatch):
    assert os.path.isfile(MODULE), "TEMPVOX_MODULE must name the built libtempvox.so"
    monkeypatch.setenv("XDG_DATA_HOME", str(tmp_path / "data"))
    return tmp_path / "data"


@pytest.fixture
def speech(tmp_path):
    """A second of 16-bit mono speech-like sound at 22050 Hz."""
    path = tmp_path / "speech.wav"
    with wave.open(str(path), "wb") as out:
        out.setnchannels(1)
        out.setsampwidth(2)
        out.setframerate(22050)
        frames = bytearray()
        for i in range(22050):
            envelope = (i // 2205) % 3
            frames += struct.pack("<h", int(6000 * envelope * math.sin(i * 0.06)))
        out.writeframes(bytes(frames))
    return str(path)


@pytest.fixture
def sentences(tmp_path):
    """Four made-up sentences at 16000 Hz mono and their true extents in
    ms: syllables of a gliding voice (eight harmonics) with 60 ms gaps,
    pauses of 700 ms between sentences."""
    rate = 16000
    samples = []
    truth = []

    def silence(ms):
        samples.extend([0] * (rate * ms // 1000))

    def sentence(syllables):
        start = len(samples) * 1000 // rate
        for s in range(syllables):
            count = rate * 150 // 1000
            phase = 0.0
            for i in range(count):
                phase += 2 * math.pi * (120 + 10 * s + 30 * i / count) / rate
                envelope = min(1.0, i / 320, (count - i) / 480)
                value = sum(math.sin(h * phase) / h for h in range(1, 9))
                samples.append(int(7000 * envelope * value))
            if s + 1 < syllables:
                silence(60)
        truth.append((start, len(samples) * 1000 // rate))

    silence(500)
    for syllables in (6, 9, 4, 7):
        sentence(syllables)
        silence(700)
    path = tmp_path / "sentences.wav"
    with wave.open(str(path), "wb") as out:
        out.setnchannels(1)
        out.setsampwidth(2)
        out.setframerate(rate)
        out.writeframes(struct.pack("<%dh" % len(samples), *samples))
    return str(path), truth


def play_to_end(player, limit=60):
    completed = []
    player.connect("PlayComplete", lambda: completed.append(True))
    for _ in range(limit):
        if completed or player.step(1) == 0:
            break
    return bool(completed)


def test_registered_module_is_found_by_progid_and_plays_to_the_end(data_home, speech):
    tempvox.register(MODULE)
    assert tempvox.module_for(tempvox.PROGID_CONTROL)[1] == os.path.realpath(MODULE)
    counts = []
    with Tempvox(audio="manual") as player:
        player.connect("CountWordFire", lambda words, span: counts.append((words, span)))
        assert player.GetVolume() == 100
        player.SetLanguageType = 2
        assert player.SetLanguageType == 2
        assert player.SetPlayFilePath(None, -1, speech) is True
        assert player.GetPlayFilePath() == speech
        assert player.StartPlay() is True
        assert player.queued_buffers() == 4
        # The first ten seconds are counted as play starts: span comes last.
        assert counts and counts[0][1] == 10000
        assert play_to_end(player)
        player.StopPlay()
        assert player.GetPlayerState() == 0
    tempvox.unregister(MODULE)
    assert tempvox.module_for(tempvox.PROGID_CONTROL) is None
    with pytest.raises(TempvoxError) as failure:
        Tempvox(progid="{B7CA8608-6E21-40F3-860A-EC1D951A0686}")
    assert failure.value.hresult == tempvox.REGDB_E_CLASSNOTREG


def test_registration_failures_name_the_step_that_failed(data_home):
    cases = [
        # (what is in the way, unregister?, expected code)
        ("TypeLib", False, tempvox.SELFREG_E_TYPELIB),
        ("CLSID", False, tempvox.SELFREG_E_CLASS),
        (None, True, tempvox.SELFREG_E_TYPELIB),
    ]
    for blocked, undo, expected in cases:
        root = tempvox.registry_root()
        subprocess.run(["rm", "-rf", root], check=True)
        os.makedirs(root)
        if blocked:
            open(os.path.join(root, blocked), "w").close()
        with pytest.raises(TempvoxError) as failure:
            (tempvox.unregister if undo else tempvox.register)(MODULE)
        assert failure.value.hresult == expected, blocked


def test_members_are_methods_by_name_and_calls_are_checked(data_home):
    with Tempvox(module=MODULE) as player:
        # The original 34, the property last among them, then our own.
        assert len(player.members) == 43
        assert player.members[0] == "StartPlay" and player.members[33] == "SetLanguageType"
        assert player.members[34:] == ["SetPlaybackProfile", "GetPlaybackProfile", "FindSentences",
                                       "GetSentenceStart", "GetSentenceEnd", "GetSentenceAt", "PlaySentence",
                                       "GetSpeakingRate", "SetSyllablesPerWord"]
        assert player.events == ["PlayComplete", "CountWordFire", "ComputeSNREvent", "PlayOneSentenceCompleted",
                                 "NewWordSpeedDone"]
        for name in player.members:
            if name != "SetLanguageType":
                assert callable(getattr(player, name)), name
        assert "strFilePath" in player.SetPlayFilePath.__doc__

        cases = [
            (lambda: player.SetVolume(), TypeError, None),
            (lambda: player.SetVolume("loud"), TypeError, None),
            (lambda: player.SetChangeSpeedLevel(40000), OverflowError, None),
            (lambda: player.SetPlayFilePath(None, -1, 5), TypeError, None),
            (lambda: setattr(player, "SetLanguageType", 70000), OverflowError, None),
            # A value of the right type that the member refuses: the
            # control's exception, with its code.
            (lambda: player.SetSyllablesPerWord(0.0), TempvoxError, DISP_E_EXCEPTION),
        ]
        for call, error, code in cases:
            with pytest.raises(error) as raised:
                call()
            if code is not None:
                assert raised.value.hresult == code
        assert player.SetVolume(101) is False
        assert player.SetVolume(30) is True
        assert player.GetVolume() == 30
        player.SetChangeSpeedLevel(-90)
        assert player.GetChangeSpeedLevel() == -60
        with pytest.raises(ValueError):
            player.connect("NoSuchEvent", print)

        # The playback profile: classic for a new control, refined on request,
        # and nothing else.
        assert player.GetPlaybackProfile() == 0
        player.SetPlaybackProfile(1)
        assert player.GetPlaybackProfile() == 1
        with pytest.raises(TempvoxError) as raised:
            player.SetPlaybackProfile(2)
        assert "profile" in str(raised.value)
        assert player.GetPlaybackProfile() == 1


def syllables_wav(path, rate, channels, count, gap, lead=0.3):
    """`count` syllables of 0.2 s (a 125 Hz triangle wave, 60 ms up, 80 ms
    held, 60 ms down) `gap` seconds apart after `lead` seconds of silence,
    and a second of silence at the end."""
    frames = bytearray()
    def level(t):
        t -= lead
        if t < 0 or t >= count * (0.2 + gap):
            return 0.0
        t %= 0.2 + gap
        return min(t / 0.06, 1.0, max((0.2 - t) / 0.06, 0.0))
    total = int((lead + count * (0.2 + gap) + 1.0) * rate)
    for i in range(total):
        phase = (i * 125 * 4 // rate) % 4 + (i * 125 * 4 % rate) / rate
        triangle = phase - 1 if phase < 2 else 3 - phase
        value = int(20000 * level(i / rate) * triangle)
        frames += struct.pack("<h", value) * channels
    with wave.open(str(path), "wb") as out:
        out.setnchannels(channels)
        out.setsampwidth(2)
        out.setframerate(rate)
        out.writeframes(bytes(frames))
    return str(path)


def test_speaking_rate_is_syllables_per_second_of_speech(data_home, tmp_path):
    cases = [
        # (rate, channels, syllables, gap): every gap is short enough to be
        # speech, so the rate is the syllables over the time from the first
        # syllable's start to the last one's end.
        (22050, 1, 20, 0.1),
        (44100, 2, 20, 0.1),
        (16000, 1, 15, 0.25),
    ]
    with Tempvox(module=MODULE) as player:
        for rate, channels, count, gap in cases:
            path = syllables_wav(tmp_path / f"syllables-{rate}.wav", rate, channels, count, gap)
            assert player.SetPlayFilePath(None, -1, path)
            expected = count / (count * (0.2 + gap) - gap)
            measured = player.GetSpeakingRate(0, 60000)
            assert abs(measured - expected) <= 0.04 * expected, (rate, channels, measured, expected)
            # The first 0.3 s are silence.
            assert player.GetSpeakingRate(0, 300) == 0.0
        for start, end in [(-1, 100), (500, 400)]:
            with pytest.raises(TempvoxError) as raised:
                player.GetSpeakingRate(start, end)
            assert raised.value.hresult == tempvox._abi.DISP_E_EXCEPTION
            assert "stretch" in str(raised.value)
        player.SetPlayFilePath(None, -1, str(tmp_path / "missing.wav"))
        with pytest.raises(TempvoxError):
            player.GetSpeakingRate(0, 1000)


def test_syllables_per_word_turns_refined_counts_into_words(data_home, tmp_path):
    path = syllables_wav(tmp_path / "thirty.wav", 22050, 1, 30, 0.1)
    for ratio, words in [(1.5, 20), (1.0, 30), (2.5, 12)]:
        with Tempvox(module=MODULE, audio="manual") as player:
            counts = []
            player.connect("CountWordFire", lambda n, span: counts.append((n, span)))
            player.SetSyllablesPerWord(ratio)
            player.SetPlaybackProfile(1)
            assert player.SetPlayFilePath(None, -1, path)
            assert player.StartPlay()
            # The whole file lies within the ten seconds reported at the start.
            assert counts[0] == (words, 10000), ratio
            player.StopPlay()
    with Tempvox(module=MODULE) as player:
        for bad in [0.0, -1.45, 0.5, 9.0, float("nan")]:
            with pytest.raises(TempvoxError) as raised:
                player.SetSyllablesPerWord(bad)
            assert "syllables per word" in str(raised.value), bad


def test_failure_of_a_callback_comes_out_of_the_pump(data_home, speech):
    with Tempvox(module=MODULE, audio="manual") as player:
        def broken():
            raise RuntimeError("sink failed")
        player.connect("PlayComplete", broken)
        assert player.SetPlayFilePath(None, -1, speech)
        assert player.StartPlay()
        with pytest.raises(RuntimeError, match="sink failed"):
            for _ in range(60):
                player.step(1)
        player.StopPlay()


def test_embedded_object_stores_no_setting_of_its_own(data_home):
    with Tempvox(module=MODULE) as first:
        assert first.misc_status == 0x20191
        assert first.control_flags == 0xFFFFFFEF
        first.show_window()
        first.draw()
        assert first.window_visible is False
        first.SetLanguageType = 3
        stored = first.save()
    assert b"_Version=65536" in stored
    with Tempvox(module=MODULE) as second:
        second.load(stored)
        assert second.SetLanguageType == 1
        with pytest.raises(TempvoxError):
            second.load(b"not a stored control")


def test_example_plays_a_file_to_play_complete(data_home, speech):
    example = os.path.join(SOURCE_DIR, "examples", "play_at_speed.py")
    environment = dict(os.environ, PYTHONPATH=os.path.join(SOURCE_DIR, "python"))
    run = subprocess.run([sys.executable, example, speech, "--level", "-30", "--audio", "manual", "--module", MODULE],
                         env=environment, capture_output=True, text=True, timeout=120)
    assert run.returncode == 0, run.stderr
    assert "event PlayComplete" in run.stdout
    assert "at speed level -30" in run.stdout


def test_sentences_are_found_read_and_played_one_at_a_time(data_home, sentences):
    path, truth = sentences
    with Tempvox(module=MODULE, audio="manual") as player:
        assert player.FindSentences(300) == -1  # no file named yet
        assert player.SetPlayFilePath(None, -1, path)
        assert player.FindSentences(10) == -4
        assert player.FindSentences(0) == len(truth)
        for index, (start, end) in enumerate(truth):
            assert abs(player.GetSentenceStart(index) - start) <= 100
            assert abs(player.GetSentenceEnd(index) - end) <= 100
            assert player.GetSentenceAt((start + end) // 2) == index
        assert player.GetSentenceAt((truth[0][1] + truth[1][0]) // 2) == -1
        assert player.GetSentenceStart(len(truth)) == -1

        completed = []
        player.connect("PlayOneSentenceCompleted", lambda: completed.append(True))
        player.SetJustPlay(True)
        assert player.PlaySentence(2) is True
        for _ in range(60):
            if completed or player.step(1) == 0:
                break
        assert completed
        assert player.GetPlayerState() == 2
        # Paused at the sentence's end, before the next one.
        assert truth[2][1] - 100 <= player.GetCurrentPlayTime() < truth[3][0]
        assert player.PlaySentence(len(truth)) is False
        player.StopPlay()
