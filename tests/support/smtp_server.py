#!/usr/bin/python3
"""A real SMTP server on 127.0.0.1 for the mail tests (aiosmtpd from Debian).

Usage: smtp_server.py USER PASSWORD LOGFILE [CERT KEY]

Prints {"smtp": port, "silent": port, "drop": port, "busy": port} once
listening: "smtp" speaks SMTP with AUTH LOGIN for USER/PASSWORD on a plain connection;
"silent" accepts connections and never says a word; "drop" takes the login and closes the
connection at the sender's address; "busy" refuses the sender for now (451). With CERT and
KEY the servers offer STARTTLS. Each message is one JSON line in LOGFILE: authenticated, login, from, to, subject, the Date header,
message_id present, body, attachments [{filename, data (base64)}]. Ends when stdin closes.
"""
import asyncio
import base64
import email
import email.policy
import json
import ssl
import sys

from aiosmtpd.smtp import SMTP, AuthResult, LoginPassword

USER, PASSWORD, LOG = sys.argv[1], sys.argv[2], sys.argv[3]
TLS = None
if len(sys.argv) > 5:  # STARTTLS offered with this certificate
    TLS = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
    TLS.load_cert_chain(sys.argv[4], sys.argv[5])


def authenticator(server, session, envelope, mechanism, auth_data):
    ok = (isinstance(auth_data, LoginPassword) and auth_data.login.decode() == USER
          and auth_data.password.decode() == PASSWORD)
    session.veltro_login = auth_data.login.decode() if isinstance(auth_data, LoginPassword) else ""
    session.veltro_mechanism = mechanism
    # handled=False lets the server answer 535 itself; True would leave the client waiting.
    return AuthResult(success=ok, handled=False)


class Handler:
    def __init__(self, mode="smtp"):
        self.mode = mode

    async def handle_MAIL(self, server, session, envelope, address, mail_options):
        if self.mode == "drop":
            server.transport.close()
            await asyncio.sleep(3600)  # cancelled as the connection goes
        if self.mode == "busy":
            return "451 4.3.0 Try again later"
        envelope.mail_from = address
        envelope.mail_options.extend(mail_options)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        msg = email.message_from_bytes(envelope.content, policy=email.policy.default)
        body, attachments = "", []
        for part in msg.walk():
            if part.is_multipart():
                continue
            if part.get_filename():
                attachments.append({"filename": part.get_filename(),
                                    "data": base64.b64encode(part.get_payload(decode=True)).decode()})
            elif part.get_content_type() == "text/plain":
                body = part.get_content()
        entry = {
            "authenticated": bool(session.authenticated), "tls": session.ssl is not None,
            "login": getattr(session, "veltro_login", ""),
            "mechanism": getattr(session, "veltro_mechanism", ""),
            "from": envelope.mail_from, "to": envelope.rcpt_tos,
            "subject": str(msg["Subject"] or ""), "header_from": str(msg["From"] or ""),
            "header_to": str(msg["To"] or ""), "date": str(msg["Date"] or ""),
            "message_id": msg["Message-ID"] is not None, "body": body, "attachments": attachments,
        }
        with open(LOG, "a") as log:
            log.write(json.dumps(entry) + "\n")
        return "250 OK"


async def silent(reader, writer):
    await reader.read()  # until the client gives up
    writer.close()


async def main():
    loop = asyncio.get_running_loop()
    ports = {}
    for mode in ("smtp", "drop", "busy"):
        server = await loop.create_server(
            lambda mode=mode: SMTP(Handler(mode), authenticator=authenticator, auth_require_tls=False,
                                   tls_context=TLS, require_starttls=False), "127.0.0.1", 0)
        ports[mode] = server.sockets[0].getsockname()[1]
    quiet = await asyncio.start_server(silent, "127.0.0.1", 0)
    ports["silent"] = quiet.sockets[0].getsockname()[1]
    print(json.dumps(ports), flush=True)
    await loop.run_in_executor(None, sys.stdin.read)


asyncio.run(main())
