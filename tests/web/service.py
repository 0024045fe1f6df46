# SPDX-License-Identifier: Apache-2.0
"""A running service and its publication folders."""

import hashlib
import http.client
import json
import os
import subprocess

CLUSTER = "7d0b6a52-41c5-4b0e-9d7e-2f6f0c1a8e11"


class Service:
    def __init__(self, program, folder, port=0):
        self._process = subprocess.Popen(
            [program, "serve", "--json", str(folder), "--port", str(port)],
            stdout=subprocess.PIPE, text=True)
        line = self._process.stdout.readline()
        self.port = json.loads(line)["listening"]["port"]

    def ask(self, method, path, body=None):
        return self.answer(method, path, body)[0]

    def answer(self, method, path, body=None):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        connection.request(method, path, body)
        answer = connection.getresponse()
        content = answer.read()
        connection.close()
        return answer.status, content

    def stop(self):
        if self._process.poll() is None:
            self._process.terminate()
        self._process.stdout.close()
        return self._process.wait(60)


def path_of(subsys, index, suffix="k"):
    return f"/file/knowledge/{subsys}/{index}/latest/{index}.{suffix}"


def publish(program, source, folder, subsys, index, *more):
    subprocess.run([program, "publish", source, "--out", folder, "--subsys", subsys, "--index",
                    index, "--cluster", CLUSTER, *more], check=True, stdout=subprocess.DEVNULL)


def fetch(program, port, work, index):
    """Runs a complete cycle of an access point."""
    element = work / f"element-{index}"
    element.mkdir(exist_ok=True)
    subprocess.run([program, "cycle", "--index", index, "--commit"], check=True,
                   stdout=subprocess.DEVNULL,
                   env={**os.environ, "ZOT_PREFIX_CONF_ROOT": str(element),
                        "ZOT_PREFIX_TMP_ROOT": str(element), "ZOT_REMOTE_PORT": str(port)})


def publish_many(folder, count, configurations):
    """Creates elements from 00000 up to count, quickly: as hard links to a few K."""
    value = folder / "config/Wlan/guest/1"
    value.parent.mkdir(parents=True)
    value.write_bytes(b"ssid=guest\n")
    checksum = hashlib.sha256(value.read_bytes()).hexdigest()
    models = []
    for number in range(configurations):
        k = json.dumps({"clusterId": CLUSTER, "firmwareVersion": f"7.1.{number}",
                        "configId": f"3f2504e0-4f89-41d3-9a0c-{number:012d}",
                        "gpbs": [{"path": "/Wlan/guest/1", "size": value.stat().st_size,
                                  "checksum": checksum}]}).encode()
        models.append([folder / f"model-{number}.k", folder / f"model-{number}.checksum"])
        models[-1][0].write_bytes(k)
        models[-1][1].write_bytes(hashlib.sha256(k).hexdigest().encode() + b"\n")
    for number in range(count):
        index = f"{number:05d}"
        latest = folder / "file/knowledge/AP" / index / "latest"
        os.makedirs(latest)
        k, announcement = models[number % configurations]
        os.link(k, latest / f"{index}.k")
        os.link(announcement, latest / f"{index}.checksum")
