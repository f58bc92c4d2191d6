// The service of a database on a free port, for the browser runs.
import { spawn, execFileSync } from 'node:child_process';

// A token for the user, and `mrpcalc serve` started; resolves once it listens.
export async function startService(binary, dsn, user, timeoutMs = 20000) {
  const token = execFileSync(binary, ['token', 'create', '--dsn', dsn, '--user', String(user)],
    { stdio: ['ignore', 'pipe', 'ignore'] }).toString().trim();
  const server = spawn(binary, ['serve', '--dsn', dsn, '--port', '0'], { stdio: ['ignore', 'ignore', 'pipe'] });
  const port = await new Promise((resolve, reject) => {
    let seen = '';
    server.stderr.on('data', (chunk) => {
      seen += chunk;
      const m = seen.match(/http:\/\/127\.0\.0\.1:(\d+)\//);
      if (m) resolve(Number(m[1]));
    });
    server.on('exit', () => reject(new Error('the server ended: ' + seen)));
    setTimeout(() => reject(new Error('the server did not start: ' + seen)), timeoutMs);
  });
  return { token, server, port };
}
