"""How a load gets from one place to another: vesko and what people use for it otherwise."""

import contextlib
import dataclasses
import os
import pathlib
import pwd
import shutil
import subprocess

from measured import VESKO, Failure

from .basics import REFERENCE, shell_line

PRIVILEGE_SEPARATION_FOLDER = pathlib.Path("/run/sshd")  # sshd insists on it when it runs as root


@dataclasses.dataclass
class Lines:
    """The sides of a transfer in a shell's words."""

    receiving: str
    sending: str | None = None  # none: there is one side only, which does not listen
    serves: bool = False  # the receiver goes on after the transfer; the sender ends only once the receiver has it all


class Vesko:
    name = "vesko"
    tools = ()

    def __init__(self, with_log=False):
        self.with_log = with_log
        if with_log:
            self.name = "vesko with --log"

    def lines(self, load, inbox, port, scratch):
        log = {side: shell_line(" --log {file}", file=scratch / f"{side}.log") if self.with_log else ""
               for side in ("sender", "receiver")}
        return Lines(
            shell_line("{vesko} receive --once --quiet --dir {inbox} --port {port}", vesko=VESKO, inbox=inbox,
                       port=port) + log["receiver"],
            shell_line("{vesko} send --quiet --to 127.0.0.1:{port} {source}", vesko=VESKO, source=load.source,
                       port=port) + log["sender"])


class Reference:
    """Our own program that does as little as a transfer takes."""

    name = "reference"
    tools = ()

    def lines(self, load, inbox, port, _scratch):
        return Lines(shell_line("{program} receive {port} {inbox}", program=REFERENCE, inbox=inbox, port=port),
                     shell_line("{program} send {port} {source}", program=REFERENCE, source=load.source, port=port))


class Netcat:
    """One file through nc; a folder through tar and nc."""

    name = "nc"
    tools = ("nc", "tar")

    def __init__(self):
        help_text = subprocess.run(["nc", "-h"], capture_output=True, text=True, check=False)
        if "OpenBSD" not in help_text.stdout + help_text.stderr:
            raise Failure("the nc here is another one than that of netcat-openbsd")

    def lines(self, load, inbox, port, _scratch):
        if load.is_tree:
            return Lines(
                shell_line("nc -4 -d -l -p {port} | tar -xf - -C {inbox}", inbox=inbox, port=port),
                shell_line("tar -cf - -C {parent} {leaf} | nc -N 127.0.0.1 {port}", parent=load.source.parent,
                           leaf=load.source.name, port=port))
        return Lines(shell_line("nc -4 -d -l -p {port} >{target}", target=inbox / load.source.name, port=port),
                     shell_line("nc -N 127.0.0.1 {port} <{source}", source=load.source, port=port))


class Rsync:
    """To a daemon of its own, without encryption."""

    name = "rsync"
    tools = ("rsync",)

    def lines(self, load, inbox, port, scratch):
        configuration = scratch / "rsyncd.conf"
        settings = ["use chroot = no", f"pid file = {scratch / 'rsyncd.pid'}", "log file = /dev/stderr",
                    "[inbox]", f"path = {inbox}", "read only = no"]
        if os.getuid() == 0:
            settings += ["uid = 0", "gid = 0"]
        configuration.write_text("\n".join(settings) + "\n", encoding="utf-8")
        return Lines(
            shell_line("rsync --daemon --no-detach --address=127.0.0.1 --port={port} --config={configuration}",
                       port=port, configuration=configuration),
            shell_line("rsync -a {source} rsync://127.0.0.1:{port}/inbox/", source=load.source, port=port),
            serves=True)


class Scp:
    """To an sshd of its own, with keys of its own and nothing of the user's."""

    name = "scp"
    tools = ("scp", "sshd", "ssh-keygen")

    def __init__(self, folder):
        self.folder = folder / "scp"
        self.folder.mkdir(mode=0o700)
        for key in ("host", "client"):
            subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-C", key, "-f", self.folder / key],
                           check=True)
        host_key = (self.folder / "host.pub").read_text(encoding="ascii")
        (self.folder / "known_hosts").write_text(f"benchmark {host_key}", encoding="ascii")
        self.write_configuration()

    def write_configuration(self):
        settings = {
            "HostKey": self.folder / "host", "AuthorizedKeysFile": self.folder / "client.pub",
            "ListenAddress": "127.0.0.1", "PidFile": "none", "LogLevel": "VERBOSE", "StrictModes": "no",
            "UsePAM": "yes" if is_locked(user_name()) else "no",  # sshd by itself lets in no user without a password
            "PermitRootLogin": "prohibit-password", "PasswordAuthentication": "no",
            "KbdInteractiveAuthentication": "no", "Subsystem": "sftp internal-sftp",
        }
        lines = [f"{key} {setting}\n" for key, setting in settings.items()]
        (self.folder / "sshd_config").write_text("".join(lines), encoding="utf-8")

    def client_options(self):
        options = {
            "IdentityFile": self.folder / "client", "IdentitiesOnly": "yes", "IdentityAgent": "none",
            "UserKnownHostsFile": self.folder / "known_hosts", "GlobalKnownHostsFile": "none",
            "HostKeyAlias": "benchmark", "StrictHostKeyChecking": "yes", "BatchMode": "yes",
        }
        return " ".join(shell_line("-o {option}", option=f"{key}={value}") for key, value in options.items())

    def lines(self, load, inbox, port, _scratch):
        return Lines(
            shell_line("{sshd} -D -e -f {configuration} -p {port}", sshd=find_tool("sshd"), port=port,
                       configuration=self.folder / "sshd_config"),
            shell_line("scp -q -F none -P {port} ", port=port) + self.client_options() +
            shell_line(" -r {source} {user}@127.0.0.1:{inbox}/", source=load.source, user=user_name(), inbox=inbox),
            serves=True)


class Copy:
    """No network at all."""

    name = "cp"
    tools = ("cp",)

    def lines(self, load, inbox, _port, _scratch):
        return Lines(shell_line("cp -r {source} {inbox}", source=load.source, inbox=inbox))


MAKERS = {
    "vesko": lambda _folder: Vesko(), "nc": lambda _folder: Netcat(), "rsync": lambda _folder: Rsync(), "scp": Scp,
    "cp": lambda _folder: Copy(), "reference": lambda _folder: Reference(),
}
TOOLS = {"vesko": Vesko.tools, "nc": Netcat.tools, "rsync": Rsync.tools, "scp": Scp.tools, "cp": Copy.tools,
         "reference": Reference.tools}


def find_tool(name):
    """The path of a program, of those for administrators too; None when there is none."""
    return shutil.which(name, path=os.pathsep.join([os.environ.get("PATH", os.defpath), "/usr/sbin", "/sbin"]))


def check_tools(chosen):
    """Raises Failure unless all that the chosen ways and the benchmark itself need is there."""
    needed = {"diff", "ip", "cmake", "stat"}.union(*(TOOLS[name] for name in chosen))
    missing = sorted(tool for tool in needed if find_tool(tool) is None)
    if missing:
        raise Failure(f"missing: {', '.join(missing)}; scripts/setup --ci installs them")


def user_name():
    return pwd.getpwuid(os.getuid()).pw_name


def is_locked(user):
    """Whether the account has no password. False for whoever may not know: an sshd of that user cannot know either."""
    try:
        lines = pathlib.Path("/etc/shadow").read_text(encoding="utf-8").split("\n")
    except OSError:
        return False
    return any(line.startswith(f"{user}:!") for line in lines)


@contextlib.contextmanager
def privilege_separation_folder(chosen):
    """Makes the folder that sshd needs as root where no sshd of the machine's own has made it, and removes it again."""
    made = "scp" in chosen and os.getuid() == 0 and not PRIVILEGE_SEPARATION_FOLDER.exists()
    if made:
        PRIVILEGE_SEPARATION_FOLDER.mkdir(mode=0o755)
    try:
        yield
    finally:
        if made:
            PRIVILEGE_SEPARATION_FOLDER.rmdir()
