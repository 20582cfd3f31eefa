// Independent V4 signer for cross-checks: reads a JSON array of requests on standard input and
// prints one Authorization value per line, computed by the official JavaScript SDK's signer.
const signUtils = require('ali-oss/lib/common/signUtils');

let input = '';
process.stdin.on('data', chunk => { input += chunk; });
process.stdin.on('end', () => {
  for (const r of JSON.parse(input)) {
    console.log(signUtils.authorizationV4(r.ak, r.sk, r.region, r.method,
      { headers: r.headers, queries: r.queries || {} }, r.bucket, r.key));
  }
});
