"""The lab's own certificate authority and its servers' certificates, made with openssl and kept between runs.

    certificates.py FOLDER     makes FOLDER if it is missing, nearly expired or made for other names

In the folder: ca.pem (the only authority that the lab trusts) and <kind>.pem with key and certificate for each kind:
  trusted      signed by that authority, for all names of the lab
  untrusted    signed by another authority
  self-signed  signed by itself
  expired      signed by the authority, over since yesterday
  wrong-name   signed by the authority, for another name
"""

import datetime
import fcntl
import hashlib
import os
import shutil
import subprocess
import sys
from pathlib import Path

if __package__:
    from . import names
else:
    import names

KINDS = ("trusted", "untrusted", "self-signed", "expired", "wrong-name")

LIFE_DAYS = 30
RENEW_DAYS = 5  # no run takes that long

CONFIG = """
[ca]
default_ca = lab
[lab]
database = index.txt
serial = serial
new_certs_dir = .
default_md = sha256
policy = anything
unique_subject = no
email_in_dn = no
[anything]
commonName = supplied
[req]
distinguished_name = name
[name]
[authority]
basicConstraints = critical, CA:TRUE
keyUsage = critical, keyCertSign, cRLSign
subjectKeyIdentifier = hash
[server]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature, keyEncipherment
extendedKeyUsage = serverAuth
subjectAltName = @names
[other]
basicConstraints = critical, CA:FALSE
keyUsage = critical, digitalSignature, keyEncipherment
extendedKeyUsage = serverAuth
subjectAltName = DNS:{other}
[names]
{names}
"""


def stamp():
    """Of all that decides what is made: the names and this program."""
    text = "\n".join([Path(__file__).read_text(), names.OTHER_NAME, *names.ADDRESSES])
    return hashlib.sha256(text.encode()).hexdigest()


def is_current(folder, now):
    try:
        made_for, renew = (folder / "stamp").read_text().split()
    except (OSError, ValueError):
        return False
    return made_for == stamp() and now < datetime.datetime.fromisoformat(renew)


def openssl(folder, *arguments):
    run = subprocess.run(["openssl", *arguments], cwd=folder, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    if run.returncode != 0:
        raise RuntimeError(f"openssl {arguments[0]} failed:\n{run.stderr}")


def moment(time):
    return time.strftime("%Y%m%d%H%M%SZ")


def make_key(folder, name, *, rsa):
    algorithm = ["RSA", "-pkeyopt", "rsa_keygen_bits:2048"] if rsa else ["EC", "-pkeyopt", "ec_paramgen_curve:P-256"]
    openssl(folder, "genpkey", "-algorithm", *algorithm, "-out", f"{name}.key")


def make_authority(folder, name, title):
    make_key(folder, name, rsa=False)
    openssl(folder, "req", "-new", "-x509", "-config", "lab.cnf", "-extensions", "authority", "-subj", f"/CN={title}",
            "-days", str(LIFE_DAYS), "-key", f"{name}.key", "-out", f"{name}.pem")


def make_server(folder, kind, signer, extensions, start, end):
    """signer: the authority's file name, or None for a certificate that signs itself."""
    make_key(folder, kind, rsa=True)
    openssl(folder, "req", "-new", "-config", "lab.cnf", "-subj", f"/CN=Lab server ({kind})",
            "-key", f"{kind}.key", "-out", f"{kind}.csr")
    signing = ["-selfsign", "-keyfile", f"{kind}.key"]
    if signer:
        signing = ["-cert", f"{signer}.pem", "-keyfile", f"{signer}.key"]
    openssl(folder, "ca", "-batch", "-notext", "-config", "lab.cnf", *signing, "-extensions", extensions,
            "-startdate", moment(start), "-enddate", moment(end), "-in", f"{kind}.csr", "-out", f"{kind}.crt")
    joined = (folder / f"{kind}.key").read_text() + (folder / f"{kind}.crt").read_text()
    (folder / f"{kind}.pem").write_text(joined)


def make_all(folder, now):
    day = datetime.timedelta(days=1)
    listed = "\n".join(f"DNS.{number} = {name}" for number, name in enumerate(names.ADDRESSES, 1))
    (folder / "lab.cnf").write_text(CONFIG.format(names=listed, other=names.OTHER_NAME))
    (folder / "index.txt").touch()
    (folder / "serial").write_text("1000\n")
    make_authority(folder, "ca", "Lab authority")
    make_authority(folder, "stranger", "Authority that nobody trusts")
    end = now + LIFE_DAYS * day
    make_server(folder, "trusted", "ca", "server", now - day, end)
    make_server(folder, "untrusted", "stranger", "server", now - day, end)
    make_server(folder, "self-signed", None, "server", now - day, end)
    make_server(folder, "expired", "ca", "server", now - 10 * day, now - day)
    make_server(folder, "wrong-name", "ca", "other", now - day, end)
    (folder / "stamp").write_text(f"{stamp()}\n{(end - RENEW_DAYS * day).isoformat()}\n")


def ensure(folder):
    """Two labs may come here at once, and a running one may still be reading: a new folder is swapped in whole."""
    folder = Path(folder).absolute()
    folder.parent.mkdir(parents=True, exist_ok=True)
    with open(f"{folder}.lock", "w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        now = datetime.datetime.now(datetime.timezone.utc)
        if is_current(folder, now):
            return
        fresh = Path(f"{folder}.fresh-{os.getpid()}")
        shutil.rmtree(fresh, ignore_errors=True)
        fresh.mkdir(mode=0o700)
        make_all(fresh, now)
        shutil.rmtree(folder, ignore_errors=True)
        fresh.rename(folder)


if __name__ == "__main__":
    ensure(sys.argv[1])
