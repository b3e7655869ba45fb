"""Runs lives, each in a device view of its own, and keeps what came of those that broke a rule."""
import json
import os
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
CARD_MEGABYTES = "256"


class Runner:
    def __init__(self, build, agent, speed, seconds):
        self._build, self._speed, self._seconds = build, speed, seconds
        self._agent = agent or os.path.join(build, "VeloAgent")
        self._folder = os.path.join(build, "year")
        os.makedirs(self._folder, exist_ok=True)

    def run(self, life, say):
        """The result of a life. Progress, a line a day, is said."""
        with tempfile.TemporaryDirectory(dir=self._folder) as folder:
            life_file, result_file = os.path.join(folder, "life"), os.path.join(folder, "result")
            with open(life_file, "w") as file:
                json.dump(life, file)
            view = [os.path.join(self._build, "devkit/device/device-view"), "--sd-megabytes", CARD_MEGABYTES, "--bind", folder,
                    "--bind", HERE, "--bind", os.path.dirname(self._agent)]
            command = [*view, "--", sys.executable, "-B", os.path.join(HERE, "live.py"), self._build, self._agent, str(self._speed),
                       life_file, result_file, str(self._seconds or 0)]
            with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as process:
                for line in process.stdout:
                    say(f"  seed {life['seed']}: {line.rstrip()}")
            if not os.path.exists(result_file):
                raise RuntimeError(f"seed {life['seed']}: the life ended without a result")
            with open(result_file) as file:
                result = json.load(file)
        if result["verdict"] != "well":
            result["file"] = self.keep(life, result, "broken")
        return result

    def keep(self, life, result, what):
        """Writes the life and what came of it to a file of its own; returns its path."""
        path = os.path.join(self._folder, f"seed-{life['seed']}-{what}.json")
        with open(path, "w") as file:
            json.dump({**life, "result": result}, file, indent=1)
        with open(path.replace(".json", ".log"), "w", encoding="latin-1") as file:
            file.write(result.get("log", ""))
        return path
